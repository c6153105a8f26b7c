#pragma once

#include "PerfHelper/PerfServerDelegate.h"

#include <QStringList>

#include <functional>

// Writes down every callback in order: "reportIntervalNew", "testDidFinished",
// "serverError:<text>", "reportInterval:<count>", "testDidFinishedWithServerLog:<count>".
class RecordingDelegate : public PerfServerDelegate
{
public:
    void reportIntervalNew(const iPerfServerResultsPtr &test) override
    {
        events << QStringLiteral("reportIntervalNew");
        tests << test;
        if (onEvent)
            onEvent();
    }
    void testDidFinished(const iPerfServerResultsPtr &test) override
    {
        events << QStringLiteral("testDidFinished");
        finished << test;
        if (onEvent)
            onEvent();
    }
    void serverError(const QString &message) override
    {
        events << QStringLiteral("serverError:") + message;
        if (onEvent)
            onEvent();
    }
    void reportInterval(const PerfResultList &results) override
    {
        events << QStringLiteral("reportInterval:%1").arg(results.size());
    }
    void testDidFinishedWithServerLog(const PerfResultList &results) override
    {
        events << QStringLiteral("testDidFinishedWithServerLog:%1").arg(results.size());
    }

    int count(const QString &prefix) const
    {
        int n = 0;
        for (const QString &event : events)
            n += event.startsWith(prefix) ? 1 : 0;
        return n;
    }

    QStringList events;
    QList<iPerfServerResultsPtr> tests;    // argument of every reportIntervalNew
    QList<iPerfServerResultsPtr> finished; // argument of every testDidFinished
    std::function<void()> onEvent;         // runs after each test or error callback
};
