// Saving and opening a results file of 100 tests of 3,600 intervals, each
// record stamped as the client tab stamps a Wi-Fi test's records.
#include "records/ResultsFile.h"
#include "shell/SettingsStore.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    SettingsStore store(dir.filePath(QStringLiteral("settings.ini")));
    QRandomGenerator random(406600);
    constexpr int kTests = 100, kIntervals = 3600, kRounds = 5;

    QList<SavedTest> tests;
    for (int t = 0; t < kTests; ++t) {
        SavedTest saved{std::make_shared<PerfHelper>(store), {}};
        PerfHelper &test = *saved.test;
        test.serverIP = QStringLiteral("192.168.1.%1").arg(t);
        test.serverPort = 5201, test.duration = kIntervals, test.stats_interval = 1, test.testType = t % 2;
        test.testLabel = t % 2 ? QStringLiteral("UDP Test") : QStringLiteral("TCP Test");
        saved.extras.startDate = QDateTime::currentDateTimeUtc().addDays(-t);
        saved.extras.note = QStringLiteral("Room %1, access point by the window").arg(t);
        for (int i = 0; i < kIntervals; ++i) {
            auto r = std::make_shared<PerfResult>();
            r->startTime = QString::number(i, 'f', 2), r->endTime = QString::number(i + 1, 'f', 2);
            r->sentBandwidth = float(80e6 + random.bounded(40e6)), r->sentBytes = r->sentBandwidth / 8;
            r->interfaceName = QStringLiteral("WiFi"), r->ssidField = QStringLiteral("Harbour"), r->bssidField = QStringLiteral("a4:2b:b0:12:34:56");
            r->rssiField = -40 - random.bounded(30), r->noiseField = -92, r->txRateField = 400 + random.bounded(466);
            r->securityModeField = 4, r->phyModeField = 5, r->opModeField = 1, r->channeField = QStringLiteral("36"), r->txPowerField = 31;
            r->direction = 0, r->retransmits = random.bounded(20), r->roundTripMs = (2000 + random.bounded(3000)) / 1000.0, r->congestionWindow = 64000 + random.bounded(64000);
            if (test.testType)
                r->jitter = QStringLiteral("0.0%1 ms").arg(random.bounded(90)), r->lostTotalDataGrams = QStringLiteral("%1/8000").arg(random.bounded(9));
            test.resultss.prepend(r);
        }
        saved.extras.finalResult = std::make_shared<PerfResult>(*test.resultss.first());
        tests << saved;
    }

    const QString path = dir.filePath(QStringLiteral("bench.tidewave.json"));
    QList<qint64> saves, opens;
    for (int round = 0; round < kRounds; ++round) {
        QElapsedTimer clock;
        clock.start();
        const QString error = ResultsFile::write(path, tests, QStringLiteral("Tidewave bench"));
        saves << clock.elapsed();
        clock.restart();
        const ResultsFile::ReadResult read = ResultsFile::read(path, store);
        opens << clock.elapsed();
        if (!error.isEmpty() || !read.error.isEmpty() || read.tests.size() != kTests
            || read.tests.last().test->resultss.size() != kIntervals) {
            std::fprintf(stderr, "failed: %s %s\n", qPrintable(error), qPrintable(read.error));
            return 1;
        }
    }
    std::sort(saves.begin(), saves.end());
    std::sort(opens.begin(), opens.end());
    std::printf("%d tests x %d intervals, file %.1f MB\n", kTests, kIntervals, double(QFileInfo(path).size()) / 1e6);
    std::printf("save: median %lld ms, slowest %lld ms (target < 1000)\n", saves.at(kRounds / 2), saves.last());
    std::printf("open: median %lld ms, slowest %lld ms (target < 1000)\n", opens.at(kRounds / 2), opens.last());
    return saves.last() < 1000 && opens.last() < 1000 ? 0 : 2;
}
