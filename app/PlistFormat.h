#pragma once

#include <QSettings>

// The settings format that reads the product information property list: the platform's own on
// macOS, an XML property list reader registered with QSettings elsewhere. Read-only.
QSettings::Format PlistFormat();

// Reads an XML property list's top-level dictionary: strings, numbers and booleans.
bool ReadXmlPlist(QIODevice &device, QSettings::SettingsMap &map);

// A value of the product information property list at strPlistPath; empty when missing.
QString ProductInfoValue(const QString &key);
