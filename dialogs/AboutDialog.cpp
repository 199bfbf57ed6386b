#include "dialogs/AboutDialog.h"

#include "app/AppGlobals.h"
#include "app/BrowserRoutes.h"
#include "app/MainWindow.h"
#include "app/PlistFormat.h"
#include "probes/ShellProbes.h"

#include <QDate>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSysInfo>
#include <QVBoxLayout>

namespace
{

QString Link(const QString &target, const QString &text)
{
    return "<a href=\"" + target.toHtmlEscaped() + "\">" + text.toHtmlEscaped() + "</a>";
}

} // namespace

AboutDialog::AboutDialog(QWidget *parent) : QDialog(parent)
{
    LoadProgramResources();
    setWindowTitle(tr("About Corvane Aldrake Video Repair"));
    setWindowIcon(QIcon(":/images/img_Product.png"));

    auto *icon = new QLabel;
    icon->setPixmap(
        QPixmap(":/images/img_Product.png").scaled(96, 96, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    icon->setAlignment(Qt::AlignTop);

    auto *name = new QLabel(tr("Corvane Aldrake Video Repair"));
    QFont big = name->font();
    big.setPointSize(big.pointSize() + 5);
    big.setBold(true);
    name->setFont(big);
    auto *version = new QLabel(tr("Version %1").arg(ProductVersion()));
    auto *blurb = new QLabel(tr("Repairs damaged MOV, MP4, M4V, M4A and F4V videos."));
    blurb->setWordWrap(true);

    const QString bootVersion =
        pMainWin ? pMainWin->GetBootOSVersion() : ProbeBootOSVersion(ProgramRunningOnPowerPc);
    m_system = new QLabel(SystemText(QSysInfo::prettyProductName(), bootVersion));
    m_system->setWordWrap(true);
    m_system->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_processor = new QLabel(QSysInfo::currentCpuArchitecture());
    m_processor->setTextInteractionFlags(Qt::TextSelectableByMouse);

    const QString email = ProductInfoValue("EmailToSupport");
    QStringList links;
    links << Link(ProductInfoValue("WebsiteLink"), ProductInfoValue("WebsiteName"))
          << Link("mailto:" + email, email)
          << Link(ProductInfoValue("ViewSupportLink"), tr("Support section"))
          << Link(ProductInfoValue("KBLink"), tr("Knowledge base articles"))
          << Link(ProductInfoValue("SubmitEnquiryLink"), tr("Submit an enquiry"));
    m_links = new QLabel(links.join("<br>"));
    m_links->setTextInteractionFlags(Qt::LinksAccessibleByMouse | Qt::LinksAccessibleByKeyboard);
    connect(m_links, &QLabel::linkActivated, this, &AboutDialog::OnLinkActivated);

    auto *facts = new QFormLayout;
    facts->addRow(tr("Operating system:"), m_system);
    facts->addRow(tr("Processor:"), m_processor);
    facts->addRow(tr("Support:"), m_links);

    auto *copyright =
        new QLabel(tr("Copyright \u00a9 %1 Corvane. All rights reserved.").arg(QDate::currentDate().year()));
    QFont small = copyright->font();
    small.setPointSize(small.pointSize() - 1);
    copyright->setFont(small);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok);
    QPushButton *licence = buttons->addButton(tr("License Agreement"), QDialogButtonBox::HelpRole);
    connect(licence, &QPushButton::clicked, this, &AboutDialog::OnLicenseAgreement);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);

    auto *text = new QVBoxLayout;
    text->addWidget(name);
    text->addWidget(version);
    text->addSpacing(4);
    text->addWidget(blurb);
    text->addSpacing(10);
    text->addLayout(facts);
    text->addSpacing(10);
    text->addWidget(copyright);

    auto *top = new QHBoxLayout;
    top->addWidget(icon);
    top->addSpacing(12);
    top->addLayout(text, 1);

    auto *layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(buttons);
    // Wrapped labels take the height they need only for a known width.
    setFixedWidth(580);
    adjustSize();
}

QString AboutDialog::SystemText(const QString &productName, const QString &bootVersion)
{
    if (bootVersion.isEmpty())
        return productName;
    if (productName.isEmpty())
        return bootVersion;
    return tr("%1, version %2").arg(productName, bootVersion);
}

QString AboutDialog::SystemLine() const
{
    return m_system->text();
}

QString AboutDialog::ProcessorLine() const
{
    return m_processor->text();
}

void AboutDialog::OnLinkActivated(const QString &link)
{
    if (link.startsWith("mailto:"))
        OpenWithSystemHandler(link);
    else
        OpenInBrowser(link);
}

void AboutDialog::OnLicenseAgreement()
{
    OpenInBrowser("file://" + HelpFilePath + "/Eula.pdf");
}
