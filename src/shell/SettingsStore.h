#pragma once

#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <memory>
#include <mutex>

class QSettings;

// The user settings store. Values stored by the user win; registered defaults
// apply only while nothing is stored under a key and are never written.
// Reads follow the semantics of the original store: strings, integers parsed
// from the leading decimal number of a string, and "none" (a null QString).
class SettingsStore
{
public:
    // The process-wide store: organisation "norvale", application "Tidewave".
    static SettingsStore &standard();

    // A store over an INI file of its own (tests and tools).
    explicit SettingsStore(const QString &iniFilePath);
    ~SettingsStore();

    SettingsStore(const SettingsStore &) = delete;
    SettingsStore &operator=(const SettingsStore &) = delete;

    void registerDefaults(const QVariantMap &defaults);
    // Registers the dictionary of an XML property-list file; a missing or
    // corrupt file registers nothing, is logged, and answers false.
    bool registerDefaultsFromFile(const QString &plistPath);
    void clearRegisteredDefaults();

    // The stored value, else the registered one, else an invalid QVariant.
    QVariant objectForKey(const QString &key) const;
    // Text of a string or number value; a null QString when none is there.
    QString stringForKey(const QString &key) const;
    // Number value, or the leading decimal integer of a string ("12abc" → 12,
    // "" → 0); 0 when none.
    qint64 integerForKey(const QString &key) const;
    bool boolForKey(const QString &key) const;
    // Whether a string (or number) is there under the key.
    bool hasStringForKey(const QString &key) const;

    void setObject(const QVariant &value, const QString &key);
    void removeObjectForKey(const QString &key);
    bool synchronize();

    // Leading decimal integer of a text, as the original store reads it:
    // leading blanks skipped, optional sign, digits up to the first non-digit.
    static qint64 leadingInteger(const QString &text);

private:
    SettingsStore();

    mutable std::mutex m_mutex;
    std::unique_ptr<QSettings> m_settings;
    QVariantMap m_registered;
};
