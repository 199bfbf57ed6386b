#include "app/PlistFormat.h"

#include "app/AppGlobals.h"

#include <QXmlStreamReader>

bool ReadXmlPlist(QIODevice &device, QSettings::SettingsMap &map)
{
    QXmlStreamReader xml(&device);
    if (!xml.readNextStartElement() || xml.name() != QLatin1String("plist"))
        return false;
    if (!xml.readNextStartElement() || xml.name() != QLatin1String("dict"))
        return false;
    QString key;
    while (xml.readNextStartElement()) {
        const QString name = xml.name().toString();
        if (name == "key") {
            key = xml.readElementText();
            continue;
        }
        if (name == "string" || name == "integer" || name == "real" || name == "date") {
            const QString text = xml.readElementText();
            if (!key.isEmpty())
                map.insert(key, text);
        } else if (name == "true" || name == "false") {
            if (!key.isEmpty())
                map.insert(key, name == "true");
            xml.skipCurrentElement();
        } else {
            xml.skipCurrentElement(); // arrays, data and nested dictionaries are not used
        }
        key.clear();
    }
    return !xml.hasError();
}

QSettings::Format PlistFormat()
{
#ifdef Q_OS_MACOS
    return QSettings::NativeFormat;
#else
    static const QSettings::Format format = QSettings::registerFormat(
        "plist", ReadXmlPlist, [](QIODevice &, const QSettings::SettingsMap &) { return false; });
    return format;
#endif
}

QString ProductInfoValue(const QString &key)
{
    return QSettings(strPlistPath, PlistFormat()).value(key).toString();
}
