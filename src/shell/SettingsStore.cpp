#include "shell/SettingsStore.h"

#include "shell/Logger.h"
#include "shell/PropertyList.h"

#include <QFile>
#include <QSettings>

#include <limits>

SettingsStore &SettingsStore::standard()
{
    static SettingsStore store;
    return store;
}

SettingsStore::SettingsStore()
    : m_settings(std::make_unique<QSettings>(QStringLiteral("norvale"), QStringLiteral("Tidewave")))
{
}

SettingsStore::SettingsStore(const QString &iniFilePath)
    : m_settings(std::make_unique<QSettings>(iniFilePath, QSettings::IniFormat))
{
}

SettingsStore::~SettingsStore() = default;

void SettingsStore::registerDefaults(const QVariantMap &defaults)
{
    std::lock_guard lock(m_mutex);
    for (auto it = defaults.cbegin(); it != defaults.cend(); ++it)
        m_registered.insert(it.key(), it.value());
}

bool SettingsStore::registerDefaultsFromFile(const QString &plistPath)
{
    QFile file(plistPath);
    if (!file.open(QIODevice::ReadOnly)) {
        TW_LOG(QStringLiteral("SettingsStore: can't read defaults resource %1: %2")
                   .arg(plistPath, file.errorString()));
        return false;
    }
    const std::optional<QVariant> root = PropertyList::fromXml(file.readAll());
    if (!root || root->typeId() != QMetaType::QVariantMap) {
        TW_LOG(QStringLiteral("SettingsStore: defaults resource %1 is not a property-list dictionary")
                   .arg(plistPath));
        return false;
    }
    registerDefaults(root->toMap());
    return true;
}

void SettingsStore::clearRegisteredDefaults()
{
    std::lock_guard lock(m_mutex);
    m_registered.clear();
}

QVariant SettingsStore::objectForKey(const QString &key) const
{
    std::lock_guard lock(m_mutex);
    if (m_settings->contains(key))
        return m_settings->value(key);
    return m_registered.value(key);
}

QString SettingsStore::stringForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    switch (value.typeId()) {
    case QMetaType::QString:
        return value.toString();
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Bool:
        return value.toString();
    case QMetaType::QByteArray:
        return QString::fromUtf8(value.toByteArray());
    default:
        return {};
    }
}

qint64 SettingsStore::integerForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    switch (value.typeId()) {
    case QMetaType::QString:
        return leadingInteger(value.toString());
    case QMetaType::QByteArray:
        return leadingInteger(QString::fromUtf8(value.toByteArray()));
    case QMetaType::Double:
        return qint64(value.toDouble());
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
    case QMetaType::Bool:
        return value.toLongLong();
    default:
        return 0;
    }
}

bool SettingsStore::boolForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    if (value.typeId() == QMetaType::QString) {
        const QString s = value.toString().trimmed().toLower();
        return s == QLatin1String("yes") || s == QLatin1String("true") || leadingInteger(s) != 0;
    }
    return integerForKey(key) != 0;
}

bool SettingsStore::hasStringForKey(const QString &key) const
{
    return !stringForKey(key).isNull();
}

void SettingsStore::setObject(const QVariant &value, const QString &key)
{
    std::lock_guard lock(m_mutex);
    if (value.isValid())
        m_settings->setValue(key, value);
    else
        m_settings->remove(key);
}

void SettingsStore::removeObjectForKey(const QString &key)
{
    std::lock_guard lock(m_mutex);
    m_settings->remove(key);
}

bool SettingsStore::synchronize()
{
    std::lock_guard lock(m_mutex);
    m_settings->sync();
    return m_settings->status() == QSettings::NoError;
}

qint64 SettingsStore::leadingInteger(const QString &text)
{
    qsizetype i = 0;
    while (i < text.size() && text.at(i).isSpace())
        ++i;
    bool negative = false;
    if (i < text.size() && (text.at(i) == QLatin1Char('-') || text.at(i) == QLatin1Char('+'))) {
        negative = text.at(i) == QLatin1Char('-');
        ++i;
    }
    // Saturate instead of overflowing on absurdly long digit runs.
    constexpr qint64 max = std::numeric_limits<qint64>::max();
    qint64 value = 0;
    for (; i < text.size() && text.at(i) >= QLatin1Char('0') && text.at(i) <= QLatin1Char('9'); ++i) {
        const int digit = text.at(i).unicode() - '0';
        if (value > (max - digit) / 10) {
            value = max;
            continue;
        }
        value = value * 10 + digit;
    }
    return negative ? -value : value;
}
