// Cut recordings repaired through the repair page with a reference chosen there or found among
// the listed files; the choice is remembered while its file exists.

#include "Bytes.h"
#include "Fixtures.h"
#include "ModalAnswerer.h"
#include "pages/repair/FileDialog.h"
#include "pages/repair/RepairResults.h"
#include "pages/repair/VideoRepairWindow.h"

#include <QPushButton>
#include <QtTest>

class TstRepairReferences : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    QString Path(const QString &name) const { return name.isEmpty() ? name : m_dir.filePath(name); }

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true); // the user's own settings stay untouched
        using Fixtures::Clip;
        const QStringList x265{"-preset", "ultrafast", "-x265-params", "log-level=error", "-tag:v", "hvc1"};
        Clip camera = Clip::Of("libx264", "aac", 2, {"-g", "25"}),
             otherCodec = Clip::Of("libx265", "aac", 2, x265);
        Clip otherSize = Clip::Of("libx264", "aac", 2, {}, "640x480");
        // A camera that repeats its parameter sets needs no reference.
        const Clip repeating =
            Clip::Of("libx264", "aac", 2, {"-g", "25", "-x264-params", "repeat-headers=1"});
        QVERIFY(Fixtures::Make(Path("camera.mp4"), camera) &&
                Fixtures::Make(Path("repeating.mp4"), repeating));
        // Cut inside the media data, before the index at the end.
        const QByteArray whole = Bytes::ReadFile(Path("camera.mp4")),
                         own = Bytes::ReadFile(Path("repeating.mp4"));
        QVERIFY(Bytes::WriteFile(Path("cut-a.mp4"), whole.left(whole.size() * 6 / 10)) &&
                Bytes::WriteFile(Path("cut-b.mp4"), whole.left(whole.size() * 3 / 10)) &&
                Bytes::WriteFile(Path("cut-own.mp4"), own.left(own.size() * 6 / 10)));
        camera.pattern = otherSize.pattern = otherCodec.pattern = "testsrc2"; // another day
        QVERIFY(Fixtures::Make(Path("healthy.mp4"), camera) &&
                Fixtures::Make(Path("reference.mp4"), camera) &&
                Fixtures::Make(Path("other-size.mp4"), otherSize) &&
                Fixtures::Make(Path("other-codec.mp4"), otherCodec));
    }

    void damagedReferenceRefused()
    {
        VideoRepairWindow page;
        ChooseReferenceFile = [&](QWidget *, const QString &) { return Path("cut-a.mp4"); };
        ModalAnswerer box(QMessageBox::Ok);
        page.findChild<QPushButton *>("ReferenceButton")->click();
        QCOMPARE(box.Text(), QString("This video cannot serve as a reference."));
        QCOMPARE(VideoRepairWindow().Reference(), QString());
    }

    // `rebuiltFrom` names what the cut files are rebuilt from; empty when nothing is at hand.
    void run_data()
    {
        QTest::addColumn<QStringList>("listed");
        QTest::addColumn<QString>("reference");
        QTest::addColumn<QString>("rebuiltFrom");
        auto row = [](const char *tag, const QStringList &listed, const char *reference, const char *from) {
            QTest::newRow(tag) << listed << QString(reference) << QString(from);
        };
        const QStringList cutAndHealthy{"cut-a.mp4", "healthy.mp4"};
        row("chosen", {"cut-a.mp4"}, "reference.mp4", "reference.mp4");
        row("found in the list", {"cut-a.mp4", "cut-b.mp4", "healthy.mp4"}, "", "healthy.mp4");
        row("chosen, another size", cutAndHealthy, "other-size.mp4", "healthy.mp4");
        row("chosen, another codec", cutAndHealthy, "other-codec.mp4", "healthy.mp4");
        row("chosen, gone before the run", {"cut-a.mp4"}, "gone.mp4", "");
        row("none needed", {"cut-own.mp4"}, "", "the file itself");
    }

    void run()
    {
        QFETCH(QStringList, listed);
        QFETCH(QString, reference);
        QFETCH(QString, rebuiltFrom);
        const bool gone = reference == "gone.mp4";
        QVERIFY(!gone || QFile::copy(Path("reference.mp4"), Path(reference)));
        VideoRepairWindow page;
        for (const QString &name : listed)
            page.AddFiles({Path(name)});
        ChooseReferenceFile = [&](QWidget *, const QString &) { return Path(reference); };
        page.findChild<QPushButton *>("ReferenceButton")->click();
        QCOMPARE(VideoRepairWindow().Reference(), Path(reference)); // remembered
        QVERIFY(!gone || QFile::remove(Path(reference)));
        page.findChild<QPushButton *>("RepairButton")->click();
        QCOMPARE(page.Worker()->References(),
                 gone || reference.isEmpty() ? QStringList() : QStringList{Path(reference)});
        QTRY_VERIFY_WITH_TIMEOUT(page.SavingWindow(), 300000);

        for (const QString &name : listed.filter("cut"))
            QCOMPARE(OutcomeOf(name, RepairOutcome::Verdict::NotPlayable).rebuiltFrom, rebuiltFrom);
        VideoRepairWindow next;
        next.findChild<QPushButton *>("ClearReferenceButton")->click();
        QCOMPARE(VideoRepairWindow().Reference(), QString());
    }
};

QTEST_MAIN(TstRepairReferences)
#include "tst_repairreferences.moc"
