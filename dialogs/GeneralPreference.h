#pragma once

#include <QDialog>

class QCheckBox;
class QLabel;
class QPushButton;

// The preferences page: the saved window placement, how files are repaired, the free repair service,
// and the working copies kept while repairing. The main window refuses to open it while a repair or
// save runs.
class GeneralPreference : public QDialog
{
    Q_OBJECT

public:
    explicit GeneralPreference(QWidget *parent = nullptr);

    QPushButton *ResetGeometryButton() const { return m_resetGeometry; }
    QPushButton *FreeRepairButton() const { return m_freeRepair; }
    QPushButton *RemoveTempButton() const { return m_removeTemp; }
    QCheckBox *KeepCodecsBox() const { return m_keepCodecs; }
    QString StatusText() const;

    // The folder that holds the working copies of a repair.
    static QString TempFolder();
    // "Keep the original codecs when the file plays without re-encoding", off until the user
    // ticks it; kept in the settings store.
    static bool KeepOriginalCodecs();

public Q_SLOTS:
    // Forgets the saved size and position; a shown main window returns to its first place.
    void OnResetGeometry();
    // Opens the enquiry page, where a video the program could not repair is sent to the service.
    void OnFreeRepairService();
    void OnRemoveTemporaryFiles();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void UpdateTempInfo();

    QPushButton *m_resetGeometry = nullptr;
    QPushButton *m_freeRepair = nullptr;
    QPushButton *m_removeTemp = nullptr;
    QCheckBox *m_keepCodecs = nullptr;
    QLabel *m_browser = nullptr;
    QLabel *m_tempInfo = nullptr;
    QLabel *m_status = nullptr;
};
