#include "shell/Logger.h"

#include <gtest/gtest.h>

#include <QThread>

#include <atomic>

namespace {

class CollectingSink : public LogSink
{
public:
    void write(const LogMessage &message) override { messages.push_back(message); }
    std::vector<LogMessage> messages;
};

TEST(LoggerTest, SourceNameIsThePathBelowSrcWithoutExtension)
{
    EXPECT_EQ(Logger::sourceNameFromPath(TIDEWAVE_SOURCE_ROOT "PerfHelper/PerfTest.cpp"),
              QStringLiteral("PerfHelper/PerfTest"));
    EXPECT_EQ(Logger::sourceNameFromPath("/elsewhere/src/client/ClientTab.cpp"), QStringLiteral("client/ClientTab"));
    EXPECT_EQ(Logger::sourceNameFromPath("main.cpp"), QStringLiteral("main"));
}

TEST(LoggerTest, MacroRecordsCallSiteAndReachesEverySink)
{
    auto first = std::make_shared<CollectingSink>();
    auto second = std::make_shared<CollectingSink>();
    Logger::shared().addSink(first);
    Logger::shared().addSink(second);
    const int line = __LINE__ + 1;
    TW_LOG(QStringLiteral("LoggerTest: hello"));
    Logger::shared().removeSink(first);
    Logger::shared().removeSink(second);

    ASSERT_EQ(first->messages.size(), 1u);
    ASSERT_EQ(second->messages.size(), 1u);
    EXPECT_EQ(first->messages[0].message, QStringLiteral("LoggerTest: hello"));
    EXPECT_EQ(first->messages[0].line, line);
    EXPECT_TRUE(first->messages[0].file.endsWith(QStringLiteral("shell/LoggerTest")));
    EXPECT_EQ(first->messages[0].function, QStringLiteral("TestBody"));
}

} // namespace
