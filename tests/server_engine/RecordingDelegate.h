#pragma once

#include "PerfHelper/PerfServerDelegate.h"

#include <QStringList>

#include <functional>

// Writes down every callback in order: "reportIntervalNew", "testDidFinished",
// "serverError:<text>", "reportInterval:<n>", "testDidFinishedWithServerLog:<n>".
class RecordingDelegate : public PerfServerDelegate
{
public:
    void reportIntervalNew(const iPerfServerResultsPtr &) override { note(QStringLiteral("reportIntervalNew")); }
    void testDidFinished(const iPerfServerResultsPtr &test) override
    {
        finished << test;
        note(QStringLiteral("testDidFinished"));
    }
    void serverError(const QString &message) override { note(QStringLiteral("serverError:") + message); }
    void reportInterval(const PerfResultList &r) override { note(QStringLiteral("reportInterval:%1").arg(r.size())); }
    void testDidFinishedWithServerLog(const PerfResultList &r) override
    {
        note(QStringLiteral("testDidFinishedWithServerLog:%1").arg(r.size()));
    }

    qsizetype count(const QString &prefix) const
    {
        return std::count_if(events.cbegin(), events.cend(), [&](const QString &e) { return e.startsWith(prefix); });
    }

    QStringList events;
    QList<iPerfServerResultsPtr> finished; // argument of every testDidFinished
    std::function<void()> onEvent;         // runs after every callback

private:
    void note(const QString &event)
    {
        events << event;
        if (onEvent)
            onEvent();
    }
};
