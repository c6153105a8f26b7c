#include "Tidewave/UnixSignalWatcher.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

#include <signal.h>

namespace {

class SignalWatcher : public ::testing::TestWithParam<int>
{
};

TEST_P(SignalWatcher, ReportsTheSignalFromTheEventLoopAndRestoresTheOldHandler)
{
    struct sigaction before = {};
    ASSERT_EQ(::sigaction(GetParam(), nullptr, &before), 0);
    {
        UnixSignalWatcher watcher;
        ASSERT_TRUE(watcher.watch({GetParam()}));
        QSignalSpy received(&watcher, &UnixSignalWatcher::signalReceived);
        ASSERT_EQ(::raise(GetParam()), 0);
        EXPECT_EQ(received.count(), 0) << "reported from inside the handler";
        ASSERT_TRUE(received.wait(5000));
        ASSERT_EQ(received.count(), 1);
        EXPECT_EQ(received.first().first().toInt(), GetParam());
    }
    struct sigaction after = {};
    ASSERT_EQ(::sigaction(GetParam(), nullptr, &after), 0);
    EXPECT_EQ(after.sa_handler, before.sa_handler);
}

INSTANTIATE_TEST_SUITE_P(Signals, SignalWatcher, ::testing::Values(SIGTERM, SIGINT, SIGHUP),
                         [](const ::testing::TestParamInfo<int> &info) {
                             return std::string(info.param == SIGTERM  ? "SIGTERM"
                                                : info.param == SIGINT ? "SIGINT"
                                                                       : "SIGHUP");
                         });

} // namespace
