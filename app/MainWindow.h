#pragma once

#include "app/FadeIn.h"
#include "ui_MainWinUi.h"

#include <QMainWindow>
#include <QPoint>
#include <QSize>

#include <memory>

class AboutDialog;
class GeneralPreference;
class MyButton;
class QAction;
class QLabel;
class QMenu;
class QPushButton;
class QTimer;
class QToolBar;
class VideoRepairWindow;

// The start page: menus, tool bar, the large repair button, and the hand-over to the repair page.
// It lives, hidden while another page shows, for the whole run of the program.
class MainWindow : public QMainWindow, public Ui_MainWinUi
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

    // Fades the window in: a fresh 50 ms timer raises the opacity by 0.1 a tick.
    void OnInitialize();

    // The system's version ("10.9.5"; "12" on Debian 12), empty when it cannot be read.
    QString GetBootOSVersion();
    // Fills strDefaultBrowser.
    void GetDefaultBrowser();

    // Where the window goes on a desktop of the given size: centred, then 50 pixels up. A desktop
    // smaller than the window gives negative coordinates, used as they are.
    static QPoint CentredPosition(const QSize &desktop, const QSize &window);

    VideoRepairWindow *RepairPage() const { return m_pVideoRepair.get(); }
    GeneralPreference *PreferencePage() const { return m_pPreference; }
    MyButton *RepairButton() const { return m_pRepairButton; }
    QPushButton *AboutButton() const { return m_pAboutButton; }
    bool Fading() const;

public Q_SLOTS:
    void OnTimerSlot();
    void OnRepairVideoFile();
    void OnThisPage(bool maximised);
    void OnPreferences();
    void OpenAboutProduct();
    void OpenMainHelp();
    void OpenHelp();
    void OnLicenseAgreement();
    void OnEmailSupport();
    void OnViewSupport();
    void OnGenerateTicket();
    void OnKnowledgeBase();
    void BrowserForAbout(QString url);

    // Declared for hover feedback; nothing connects them.
    void OnPreferencesMouseEnter();
    void OnPreferencesMouseLeave();
    void OnAboutMouseEnter();
    void OnAboutMouseLeave();
    void OnVideoRepairDesc();
    void OnVideoRepairLeaveDesc();

protected:
    void closeEvent(QCloseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void CreateMenu();
    void CreateMenuBar();
    void CreateToolBarItems();
    void GetLinkLabel();
    void SetCentralLayout();
    QString PlistValue(const QString &key) const;

    QAction *m_pPreferencesAction = nullptr;
    QAction *m_pHelpTopicsAction = nullptr;
    QAction *m_pAboutAction = nullptr;
    QAction *m_pLicenseAction = nullptr;
    QAction *m_pEmailSupportAction = nullptr;
    QAction *m_pViewSupportAction = nullptr;
    QAction *m_pSubmitEnquiryAction = nullptr;
    QAction *m_pKnowledgeBaseAction = nullptr;
    QMenu *m_pApplicationMenu = nullptr;
    QMenu *m_pHelpMenu = nullptr;
    QToolBar *m_pToolBar = nullptr;
    QPushButton *m_pAboutButton = nullptr;
    MyButton *m_pRepairButton = nullptr;
    FadeIn m_fade{this, 50};
    GeneralPreference *m_pPreference = nullptr;
    // A window of its own, so owned here rather than by a Qt parent.
    std::unique_ptr<VideoRepairWindow> m_pVideoRepair;
};
