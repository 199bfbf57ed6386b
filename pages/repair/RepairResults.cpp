#include "pages/repair/RepairResults.h"

#include <QCoreApplication>
#include <QFileInfo>

QStringList mY_unsupportedList;
QStringList AllFiles;
RepairOutcomes lstRepairOutcomes;

RepairOutcome OutcomeOf(const QString &name, RepairOutcome::Verdict verdict)
{
    for (const RepairOutcome &o : qAsConst(lstRepairOutcomes))
        if (QFileInfo(o.source).fileName() == name)
            return o;
    RepairOutcome o;
    o.verdict = verdict;
    return o;
}

QString GetSizeOfItem(qint64 bytes)
{
    const double b = double(bytes);
    double value = b / 1024.0;
    QString unit = QCoreApplication::translate("VideoRepairWindow", " KB");
    if (qint64(b / double(1 << 30)) != 0) {
        value = b / double(1 << 30);
        unit = QCoreApplication::translate("VideoRepairWindow", " GB");
    } else if (qint64(b / double(1 << 20)) != 0) {
        value = b / double(1 << 20);
        unit = QCoreApplication::translate("VideoRepairWindow", " MB");
    }
    QString text = QString("%1").arg(value, 0, 'g', 8, QLatin1Char(' '));
    const int dot = text.indexOf('.');
    if (dot >= 0)
        text.truncate(dot + 3);
    return text + unit;
}

QStringList WidestSizeTexts()
{
    // 1023.992 MiB and GiB: four digits and two after the point.
    return {GetSizeOfItem((qint64(1) << 30) - (qint64(1) << 13)),
            GetSizeOfItem((qint64(1) << 40) - (qint64(1) << 23))};
}
