#pragma once

#include <QDialog>

class QLabel;

// Product and version, the system it runs on, and where to get help.
class AboutDialog : public QDialog
{
    Q_OBJECT

public:
    explicit AboutDialog(QWidget *parent = nullptr);

    // "Debian GNU/Linux 12 (bookworm), version 12"; the version alone where the system has no name.
    static QString SystemText(const QString &productName, const QString &bootVersion);

    QString SystemLine() const;
    QString ProcessorLine() const;
    QLabel *LinksLabel() const { return m_links; }

public Q_SLOTS:
    void OnLinkActivated(const QString &link);
    void OnLicenseAgreement();

private:
    QLabel *m_system = nullptr;
    QLabel *m_processor = nullptr;
    QLabel *m_links = nullptr;
};
