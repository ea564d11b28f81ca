#pragma once

#include <QString>

// The WebDAV share of the cloud relay: the built-in account, or the user's
// own server when the settings name one.
namespace CloudShare
{
// Settings keys; an empty or absent value keeps the built-in default.
inline const QString kBaseUrlKey = QStringLiteral("CloudBaseUrl");
inline const QString kUserKey = QStringLiteral("CloudUser");
inline const QString kPasswordKey = QStringLiteral("CloudPassword");

QString DefaultBaseUrl();
QString DefaultUser();
QString DefaultPassword();

QString BaseUrl();
QString User();
QString Password();
} // namespace CloudShare
