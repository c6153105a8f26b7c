#pragma once

#include "PerfHelper/PerfHelper.h"
#include "records/PerfResult.h"
#include "shell/NotificationCenter.h"
#include "shell/SettingsStore.h"

#include <QStringList>
#include <QTemporaryDir>

#include <memory>

namespace ClientTestSupport {

// An interval record as the coordinator hands it over.
inline PerfResultPtr record(const QString &start, const QString &end, float bytes, float bitsPerSecond,
                            qint64 bandwidthformat = 0)
{
    auto r = std::make_shared<PerfResult>();
    r->startTime = start;
    r->endTime = end;
    r->sentBytes = bytes;
    r->sentBandwidth = bitsPerSecond;
    r->bandwidthformat = bandwidthformat;
    return r;
}

// A finished 10 s TCP test against 10.0.0.5 with these records, newest first.
inline PerfHelperPtr test(SettingsStore &store, const PerfResultList &newestFirst = {})
{
    auto t = std::make_shared<PerfHelper>(store);
    t->serverIP = QStringLiteral("10.0.0.5");
    t->serverPort = 5201;
    t->duration = 10;
    t->stats_interval = 1;
    t->testLabel = QStringLiteral("TCP Test");
    t->resultss = newestFirst;
    return t;
}

// A settings store of its own in a temporary folder.
struct TempStore
{
    QTemporaryDir dir;
    SettingsStore store{dir.filePath(QStringLiteral("settings.ini"))};
};

// Every "showInfoMessage" text posted while it lives, in order.
struct InfoMessages
{
    InfoMessages()
    {
        NotificationCenter::defaultCenter().addObserver(this, QStringLiteral("showInfoMessage"), [this](const QVariantMap &info) {
            texts.append(info.value(QStringLiteral("message")).toString());
        });
    }
    ~InfoMessages() { NotificationCenter::defaultCenter().removeObserver(this); }
    InfoMessages(const InfoMessages &) = delete;
    InfoMessages &operator=(const InfoMessages &) = delete;

    QStringList texts;
};

} // namespace ClientTestSupport
