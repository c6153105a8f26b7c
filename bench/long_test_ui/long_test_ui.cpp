// Drives the client tab's interval callback as a 24-hour test at 1 s
// intervals would, as fast as the tab allows, and measures what each interval
// costs the main thread: the callback, the list refresh, the detail table and
// the graph, painted. Figures are taken over 100 consecutive intervals when
// the test holds about 100, 3,600 and 86,400 records.
#include "PerfHelper/PerfHelper.h"
#include "client/AlertPresenter.h"
#include "client/ClientTab.h"
#include "client/DelayScheduler.h"
#include "client/SpeedGraph.h"
#include "client/TestInformationView.h"
#include "shell/SettingsStore.h"

#include <QApplication>
#include <QComboBox>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QTableView>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <random>
#include <vector>

#include <sys/resource.h>

namespace {

class SilentAlerts : public AlertPresenter
{
public:
    void showAlert(QWidget *, const QString &) override {}
    bool confirm(QWidget *, const QString &, const QString &, const QString &) override { return false; }
};

// Keeps the tab's delayed calls; set-up runs on demand, time-outs never.
class HeldScheduler : public DelayScheduler
{
public:
    void schedule(std::chrono::milliseconds, QObject *, std::function<void()> action) override
    {
        actions.push_back(std::move(action));
    }
    std::vector<std::function<void()>> actions;
};

// Counts the paint events of the widgets it watches.
class PaintCounter : public QObject
{
public:
    int paints = 0;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Paint)
            ++paints;
        return QObject::eventFilter(watched, event);
    }
};

double percentile(std::vector<double> samples, double p)
{
    std::sort(samples.begin(), samples.end());
    const auto rank = std::size_t(p * double(samples.size() - 1) + 0.5);
    return samples.at(std::min(rank, samples.size() - 1));
}

long peakRssKiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    const int total = argc > 1 ? std::max(200, std::atoi(argv[1])) : 86400;
    const int window = 100;
    const std::vector<int> marks{100, 3600, total};

    QTemporaryDir dir;
    SettingsStore settings(dir.filePath(QStringLiteral("settings.ini")));
    SilentAlerts alerts;
    HeldScheduler scheduler;
    ClientTabServices services;
    services.settings = &settings;
    services.alerts = &alerts;
    services.scheduler = &scheduler;
    services.networkDetails = [] { return PIFCInterfaceInfoList(); };
    services.executeShellCommandAsynchronously = [](const QString &) {};
    services.runTest = [](PerfHelper &) {};
    services.stopTest = [](PerfHelper &) {};

    ClientTab tab(nullptr, services);
    tab.resize(1100, 860);
    tab.show();
    scheduler.actions.front()(); // the delayed set-up
    tab.findChild<QLineEdit *>(QStringLiteral("clientToServerIpAddress"))->setText(QStringLiteral("10.0.0.5"));
    tab.findChild<QLineEdit *>(QStringLiteral("testDuration"))->setText(QString::number(total));
    tab.findChild<QLineEdit *>(QStringLiteral("graphMaxSpeed"))->setText(QStringLiteral("100"));
    tab.findChild<QComboBox *>(QStringLiteral("statsInterval"))->setCurrentIndex(0);
    tab.runClient();
    if (tab.testResultsArray().size() != 1) {
        std::fprintf(stderr, "the run did not start\n");
        return 1;
    }
    QApplication::processEvents();
    // The graph's and the interval table's drawing surfaces, to show that
    // each measured interval includes their repaint.
    PaintCounter graphPaints;
    PaintCounter tablePaints;
    tab.findChild<SpeedGraph *>()->viewport()->installEventFilter(&graphPaints);
    tab.testInfoView()->perfResultView()->viewport()->installEventFilter(&tablePaints);

    std::mt19937 random(42);
    std::uniform_real_distribution<float> rate(40e6f, 95e6f);
    const auto makeRecord = [&](int second) {
        auto r = std::make_shared<PerfResult>();
        r->startTime = QStringLiteral("%1.00").arg(second);
        r->endTime = QStringLiteral("%1.00").arg(second + 1);
        r->sentBandwidth = rate(random);
        r->sentBytes = r->sentBandwidth / 8;
        r->interfaceName = QStringLiteral("Ethernet");
        return r;
    };

    std::printf("records  median_ms  p99_ms  max_ms  graph_paints  table_paints\n");
    QElapsedTimer run;
    run.start();
    int second = 0;
    for (int mark : marks) {
        // Compressed stretch: intervals arrive back to back, the event loop
        // runs now and then, so refreshes and paints coalesce.
        while (second < mark - window) {
            tab.reportIntervalResults(makeRecord(second++));
            if (second % 1000 == 0)
                QApplication::processEvents();
        }
        QApplication::processEvents();
        // Measured stretch: each interval is handled completely (callback,
        // queued refresh, repaint) before the next.
        std::vector<double> costs;
        graphPaints.paints = 0;
        tablePaints.paints = 0;
        while (second < mark) {
            QElapsedTimer t;
            t.start();
            tab.reportIntervalResults(makeRecord(second++));
            // The queued refresh, then the repaint it asks for.
            QApplication::processEvents();
            QApplication::processEvents();
            costs.push_back(double(t.nsecsElapsed()) / 1e6);
        }
        std::printf("%7d  %9.2f  %6.2f  %6.2f  %12d  %12d\n", mark, percentile(costs, 0.5), percentile(costs, 0.99),
                    *std::max_element(costs.begin(), costs.end()), graphPaints.paints, tablePaints.paints);
        std::fflush(stdout);
    }
    std::printf("peak RSS: %.1f MB   wall time: %.1f s\n", double(peakRssKiB()) / 1024.0, double(run.elapsed()) / 1000.0);
    return 0;
}
