#include "cloud/cloudshare.h"

#include "common/settings.h"

namespace
{
QString setting(const QString& key, const QString& fallback)
{
    const QString value = SettingsStore::get(key);
    return value.trimmed().isEmpty() ? fallback : value;
}
} // namespace

namespace CloudShare
{
QString DefaultBaseUrl()
{
    return QStringLiteral("https://cloudprint.quorvel.example/dav/");
}
QString DefaultUser()
{
    return QStringLiteral("cloudprint@quorvel.example");
}
QString DefaultPassword()
{
    return QStringLiteral("Rwm402719");
}

QString BaseUrl()
{
    return setting(kBaseUrlKey, DefaultBaseUrl()).trimmed();
}
QString User()
{
    return setting(kUserKey, DefaultUser());
}
QString Password()
{
    return setting(kPasswordKey, DefaultPassword());
}
} // namespace CloudShare
