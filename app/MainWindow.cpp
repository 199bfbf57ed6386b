#include "app/MainWindow.h"

#include "app/AppGlobals.h"
#include "app/BrowserRoutes.h"
#include "app/MyButton.h"
#include "app/PlistFormat.h"
#include "dialogs/AboutDialog.h"
#include "dialogs/GeneralPreference.h"
#include "pages/repair/MyTreeWidget.h"
#include "pages/repair/VideoRepairWindow.h"
#include "probes/ShellProbes.h"
#include "repair/ProcessFlags.h"

#include <QCloseEvent>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QMenuBar>
#include <QMessageBox>
#include <QScreen>
#include <QSettings>
#include <QSysInfo>
#include <QTimer>
#include <QToolBar>

#ifdef Q_OS_MACOS
#include <CoreServices/CoreServices.h>
#endif

namespace
{

const char *const GeometryOrganisation = "Corvane";
const char *const GeometryApplication = "CorvaneVideoGeometrySettings";

QSettings GeometryStore()
{
    return QSettings(GeometryOrganisation, GeometryApplication);
}

bool RunningOnPowerPc()
{
#ifdef Q_OS_MACOS
    SInt32 family = 0;
    if (Gestalt(gestaltSysArchitecture, &family) == noErr)
        return family == gestalt68k || family == gestaltPowerPC;
    return false;
#else
    return QSysInfo::currentCpuArchitecture().startsWith("power");
#endif
}

} // namespace

MainWindow::MainWindow(QWidget *parent) : QMainWindow(parent)
{
    LoadProgramResources();
    setupUi(this);
    pMainWin = this;

    ProgramRunningOnPowerPc = RunningOnPowerPc();

    GetDefaultBrowser();
    CreateMenu();
    CreateMenuBar();
    CreateToolBarItems();

    m_pPreference = new GeneralPreference(this);
    m_pPreference->hide();
    m_pVideoRepair = std::make_unique<VideoRepairWindow>();

    setUnifiedTitleAndToolBarOnMac(true);
    GetLinkLabel();

    const QScreen *screen = QGuiApplication::primaryScreen();
    if (screen)
        move(CentredPosition(screen->virtualGeometry().size(), size()));
    setWindowIcon(QIcon(":/images/img_Product.png"));
}

MainWindow::~MainWindow()
{
    if (pMainWin == this)
        pMainWin = nullptr;
}

QPoint MainWindow::CentredPosition(const QSize &desktop, const QSize &window)
{
    return QPoint((desktop.width() - window.width()) / 2, (desktop.height() - window.height()) / 2 - 50);
}

// ---- Menus and tool bar ----

void MainWindow::CreateMenu()
{
    m_pPreferencesAction = new QAction(tr("&Preferences..."), this);
    m_pPreferencesAction->setMenuRole(QAction::TextHeuristicRole);
    connect(m_pPreferencesAction, &QAction::triggered, this, &MainWindow::OnPreferences);

    m_pAboutAction = new QAction(tr("&About"), this);
    m_pAboutAction->setMenuRole(QAction::AboutRole);
    connect(m_pAboutAction, &QAction::triggered, this, &MainWindow::OpenAboutProduct);

    m_pHelpTopicsAction = new QAction(tr("&Help Topics..."), this);
    m_pHelpTopicsAction->setMenuRole(QAction::NoRole);
    connect(m_pHelpTopicsAction, &QAction::triggered, this, &MainWindow::OpenMainHelp);

    m_pLicenseAction = new QAction(tr("&License Agreement"), this);
    m_pLicenseAction->setMenuRole(QAction::ApplicationSpecificRole);
    connect(m_pLicenseAction, &QAction::triggered, this, &MainWindow::OnLicenseAgreement);

    m_pEmailSupportAction = new QAction(tr("Email to Corvane Support"), this);
    m_pEmailSupportAction->setMenuRole(QAction::NoRole);
    connect(m_pEmailSupportAction, &QAction::triggered, this, &MainWindow::OnEmailSupport);

    m_pViewSupportAction = new QAction(tr("View Support Section"), this);
    m_pViewSupportAction->setMenuRole(QAction::NoRole);
    connect(m_pViewSupportAction, &QAction::triggered, this, &MainWindow::OnViewSupport);

    m_pSubmitEnquiryAction = new QAction(tr("Submit Enquiry"), this);
    m_pSubmitEnquiryAction->setMenuRole(QAction::NoRole);
    connect(m_pSubmitEnquiryAction, &QAction::triggered, this, &MainWindow::OnGenerateTicket);

    m_pKnowledgeBaseAction = new QAction(tr("View Knowledgebase Articles"), this);
    m_pKnowledgeBaseAction->setMenuRole(QAction::NoRole);
    connect(m_pKnowledgeBaseAction, &QAction::triggered, this, &MainWindow::OnKnowledgeBase);
}

void MainWindow::CreateMenuBar()
{
#ifdef Q_OS_MACOS
    // Untitled: macOS moves Preferences and About into the application menu.
    m_pApplicationMenu = menuBar()->addMenu(QString());
#else
    // Elsewhere nothing moves them, and an untitled menu could not be found.
    m_pApplicationMenu = menuBar()->addMenu(tr("&Program"));
#endif
    m_pApplicationMenu->addAction(m_pPreferencesAction);
    m_pApplicationMenu->addAction(m_pAboutAction);

    m_pHelpMenu = menuBar()->addMenu(tr("&Help"));
    m_pHelpMenu->addAction(m_pHelpTopicsAction);
    m_pHelpMenu->addAction(m_pEmailSupportAction);
    m_pHelpMenu->addAction(m_pViewSupportAction);
    m_pHelpMenu->addAction(m_pSubmitEnquiryAction);
    m_pHelpMenu->addAction(m_pKnowledgeBaseAction);
}

void MainWindow::CreateToolBarItems()
{
    m_pAboutButton = new QPushButton;
    m_pAboutButton->setFixedSize(32, 32);
    m_pAboutButton->setToolTip(tr("About Corvane Aldrake Video Repair"));
    m_pAboutButton->setStyleSheet("QPushButton{border-image: url(:/images/img_About.png)}"
                                  "QPushButton:hover { border-image: url(:/images/img_AboutHover.png)}"
                                  "QPushButton:pressed { border-image: url(:/images/img_AboutPress.png);}");
    connect(m_pAboutButton, &QPushButton::clicked, this, &MainWindow::OpenAboutProduct);

    auto *holder = new QLabel;
    holder->setFixedSize(100, 32);
    auto *holderLayout = new QHBoxLayout(holder);
    holderLayout->setSpacing(0);
    holderLayout->setContentsMargins(0, 0, 0, 0);
    holderLayout->addWidget(m_pAboutButton);

    m_pToolBar = addToolBar(tr("Show ToolBar"));
    m_pToolBar->setIconSize(QSize(29, 29));
    m_pToolBar->addWidget(holder);

    m_pRepairButton = new MyButton(centralwidget);
    m_pRepairButton->init();
    m_pRepairButton->show();
    connect(m_pRepairButton, &QPushButton::clicked, this, &MainWindow::OnRepairVideoFile);

    DescLabel->setText(
        tr("Repair your corrupt videos using Corvane Aldrake Video Repair. You can repair multiple "
           "videos like MOV, MP4, M4V, M4A and F4V. Once selected video is repaired, you can preview "
           "it before finally saving repaired video on your drive."));

    HelpButton->setStyleSheet(
        "QPushButton{min-height: 26px;min-width: 26px; border-image: url(:/images/img_Help.png)}"
        "QPushButton:hover { border-image: url(:/images/img_HelpHover.png)}"
        "QPushButton:pressed { border-image: url(:/images/img_HelpPressed.png);}");
    HelpButton->setToolTip(tr("Help"));
    connect(HelpButton, &QPushButton::clicked, this, &MainWindow::OpenHelp);

    for (QWidget *button : {static_cast<QWidget *>(m_pRepairButton), static_cast<QWidget *>(HelpButton)}) {
        QSizePolicy policy(QSizePolicy::Fixed, QSizePolicy::Fixed);
        policy.setRetainSizeWhenHidden(button->sizePolicy().retainSizeWhenHidden());
        button->setSizePolicy(policy);
    }

    SetCentralLayout();
}

void MainWindow::SetCentralLayout()
{
    auto *outer = new QGridLayout;
    outer->setContentsMargins(0, 0, 0, 0);
    outer->setColumnStretch(0, 1);
    outer->setColumnStretch(2, 1);

    auto *left = new QGridLayout;
    left->setContentsMargins(0, 0, 0, 0);
    left->setColumnStretch(0, 1);
    auto *filler = new QLabel;
    filler->setScaledContents(true);
    left->addWidget(filler, 0, 0);
    left->addWidget(HelpButton, 0, 0, Qt::AlignLeft | Qt::AlignTop);

    auto *right = new QGridLayout;
    right->setContentsMargins(0, 0, 0, 0);
    right->setColumnStretch(0, 1);
    auto *rightFiller = new QLabel;
    rightFiller->setScaledContents(true);
    right->addWidget(rightFiller, 0, 0);
    right->addWidget(LinkLabel, 0, 0, Qt::AlignRight | Qt::AlignTop);

    auto *middle = new QGridLayout;
    middle->setContentsMargins(0, 0, 0, 0);
    middle->setColumnStretch(0, 1);
    middle->setColumnStretch(5, 1);
    middle->setColumnMinimumWidth(1, 263);
    const int rowHeights[] = {170, 20, 100, 20, 20, 71};
    for (int row = 1; row <= 6; ++row)
        middle->setRowMinimumHeight(row, rowHeights[row - 1]);
    middle->addWidget(ImageLabel, 1, 1, 1, 3, Qt::AlignHCenter);
    middle->addWidget(FirstLine, 2, 1, 1, 3);
    middle->addWidget(m_pRepairButton, 3, 1, 1, 3);
    middle->addWidget(SecondLine, 4, 1, 1, 3);
    middle->addWidget(DescLabel, 5, 1, 1, 3);

    outer->addLayout(left, 0, 0);
    outer->addLayout(middle, 0, 1);
    outer->addLayout(right, 0, 2);

    // A fresh central widget takes the layout; the form's widgets move into it.
    QWidget *central = new QWidget;
    central->setLayout(outer);
    setCentralWidget(central);
    centralwidget = central;
}

// ---- Property list and browser routes ----

QString MainWindow::PlistValue(const QString &key) const
{
    return ProductInfoValue(key);
}

void MainWindow::GetLinkLabel()
{
    const QString name = PlistValue("WebsiteName");
    const QString link = PlistValue("WebsiteLink");
    LinkLabel->setText("<a href=\"" + link.toHtmlEscaped() + "\">" + name.toHtmlEscaped() + "</a>");
    // Qt would open the link itself and never emit linkActivated if the label opened external links;
    // the label leaves that to BrowserForAbout.
    LinkLabel->setOpenExternalLinks(false);
    LinkLabel->setTextInteractionFlags(Qt::LinksAccessibleByMouse | Qt::LinksAccessibleByKeyboard);
    connect(LinkLabel, &QLabel::linkActivated, this, &MainWindow::BrowserForAbout);
    connect(m_pVideoRepair.get(), &VideoRepairWindow::OnBack, this, &MainWindow::OnThisPage);
}

void MainWindow::BrowserForAbout(QString url)
{
    OpenInBrowser(url, BrowserRoute::BrowserAlways);
}

void MainWindow::OpenMainHelp()
{
    OpenInBrowser("file://" + HelpFilePath + "/help/Corvane_Aldrake_Video_Repair.htm");
}

void MainWindow::OpenHelp()
{
    QString address = "file://" + HelpFilePath + "/help/User_Interface.htm";
    address.replace(" ", "%20");
    OpenInBrowser(address);
}

void MainWindow::OnLicenseAgreement()
{
    OpenInBrowser("file://" + HelpFilePath + "/Eula.pdf");
}

void MainWindow::OnEmailSupport()
{
    OpenWithSystemHandler("mailto:" + PlistValue("EmailToSupport"));
}

void MainWindow::OnViewSupport()
{
    OpenInBrowser(PlistValue("ViewSupportLink"), BrowserRoute::UnquotedBrowserOrSystem);
}

void MainWindow::OnGenerateTicket()
{
    OpenInBrowser(PlistValue("SubmitEnquiryLink"));
}

void MainWindow::OnKnowledgeBase()
{
    OpenInBrowser(PlistValue("KBLink"));
}

// ---- Probes ----

QString MainWindow::GetBootOSVersion()
{
    return ProbeBootOSVersion(ProgramRunningOnPowerPc);
}

void MainWindow::GetDefaultBrowser()
{
    strDefaultBrowser = ProbeDefaultBrowser();
}

// ---- Fade-in ----

void MainWindow::OnInitialize()
{
    m_fade.Start();
}

void MainWindow::OnTimerSlot()
{
    m_fade.Tick();
}

bool MainWindow::Fading() const
{
    return m_fade.Running();
}

// ---- Pages ----

void MainWindow::OnRepairVideoFile()
{
    GeometryStore().setValue("geometry", saveGeometry());
    if (isMaximized())
        m_bMax = true;
    hide();
    m_pVideoRepair->OnInitialize();
    m_pVideoRepair->OnInitialSettings();
    if (m_bMax) {
        m_pVideoRepair->showMaximized();
    } else {
        m_pVideoRepair->restoreGeometry(GeometryStore().value("geometry").toByteArray());
        m_pVideoRepair->show();
    }
    m_pVideoRepair->Tree()->show();
}

void MainWindow::OnThisPage(bool maximised)
{
    m_bMax = maximised;
    OnInitialize();
    if (!maximised) {
        restoreGeometry(GeometryStore().value("geometry").toByteArray());
        show();
    } else {
        showMaximized();
    }
}

void MainWindow::OnPreferences()
{
    if (bProcessRunning)
        return;
    m_pPreference->show();
    m_pPreference->raise();
    m_pPreference->activateWindow();
}

void MainWindow::OpenAboutProduct()
{
    auto *about = new AboutDialog(this);
    about->setAttribute(Qt::WA_DeleteOnClose);
    about->setModal(true);
    about->show();
}

void MainWindow::resizeEvent(QResizeEvent *event)
{
    QMainWindow::resizeEvent(event);
    GeometryStore().setValue("geometry", saveGeometry());
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    const CloseAnswer answer = AskToClose(this);
    // Answered either way: after a No the next close request goes through without asking.
    if (answer == CloseAnswer::Yes || answer == CloseAnswer::No)
        CloseSuccess = true;
    if (answer == CloseAnswer::Running || answer == CloseAnswer::No)
        event->ignore();
    else
        event->accept();
}

// ---- Idle hover slots ----

void MainWindow::OnPreferencesMouseEnter()
{
    m_pAboutButton->setIcon(QIcon(":/images/img_Setting.png"));
}

void MainWindow::OnPreferencesMouseLeave()
{
    m_pAboutButton->setIcon(QIcon(":/images/img_Setting.png"));
}

void MainWindow::OnAboutMouseEnter()
{
    m_pAboutButton->setIcon(QIcon(":/images/img_Setting.png"));
}

void MainWindow::OnAboutMouseLeave()
{
    m_pAboutButton->setIcon(QIcon(":/images/img_Setting.png"));
}

void MainWindow::OnVideoRepairDesc()
{
    DescLabel->setText(
        tr("Add damaged MOV, MP4, M4V, M4A and F4V videos, repair them, preview the results and "
           "save them on your drive."));
}

void MainWindow::OnVideoRepairLeaveDesc()
{
    DescLabel->setText(
        tr("Repair your corrupt videos using Corvane Aldrake Video Repair. You can repair multiple "
           "videos like MOV, MP4, M4V, M4A and F4V. Once selected video is repaired, you can preview "
           "it before finally saving repaired video on your drive."));
}
