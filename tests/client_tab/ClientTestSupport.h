#pragma once

#include "shell/NotificationCenter.h"
#include "shell/SettingsStore.h"

#include <QTemporaryDir>

#include <ostream>

inline void PrintTo(const QString &text, std::ostream *os) { *os << '"' << text.toStdString() << '"'; }

namespace ClientTestSupport {

// A settings store of its own in a temporary folder.
struct TempStore
{
    QTemporaryDir dir;
    QString path = dir.filePath(QStringLiteral("settings.ini"));
    SettingsStore store{path};
};

// Every "showInfoMessage" text posted while it lives, in order.
struct InfoMessages
{
    InfoMessages() { NotificationCenter::defaultCenter().addObserver(this, QStringLiteral("showInfoMessage"), [this](const QVariantMap &info) { texts << info.value(QStringLiteral("message")).toString(); }); }
    ~InfoMessages() { NotificationCenter::defaultCenter().removeObserver(this); }
    QStringList texts;
};

} // namespace ClientTestSupport
