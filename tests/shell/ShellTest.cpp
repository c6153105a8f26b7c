#include "common/TestEnvironment.h"
#include "shell/DDTTYLogger.h"
#include "shell/LoggingSetup.h"
#include "shell/NotificationCenter.h"
#include "shell/PropertyList.h"
#include "shell/SettingsStore.h"

#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cerrno>
#include <limits>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

TEST(Settings, ReadEveryKindAsTheOriginalStoreDidAndStoredValuesWinOverDefaultsWhichAreNeverWritten)
{
    QTemporaryDir dir;
    {
        SettingsStore store(dir.filePath(u"s.ini"_s));
        // A value, then how it reads: as text (none: nullptr), number and flag.
        const struct { QVariant value; const char *text; qint64 number; bool flag; } rows[] = {
            {u"12abc"_s, "12abc", 12, true}, {u" True "_s, " True ", 0, true}, {u"yes"_s, "yes", 0, true},
            {u"no"_s, "no", 0, false}, {u""_s, "", 0, false}, {7, "7", 7, true}, {2.9, "2.9", 2, true},
            {QByteArray("42x"), "42x", 42, true}, {true, "true", 1, true}, {QVariant(), nullptr, 0, false},
            {QVariantList{1}, nullptr, 0, false}, {u"  -7x"_s, "  -7x", -7, true}, {u"+5"_s, "+5", 5, true},
            {u"99999999999999999999999"_s, "99999999999999999999999", std::numeric_limits<qint64>::max(), true}};
        for (const auto &row : rows) {
            const QString key = QString::number(&row - rows), text = (store.registerDefaults({{key, row.value}}), store.stringForKey(key));
            EXPECT_EQ(QVariantList({text.isNull() ? QVariant() : text, store.hasStringForKey(key), store.integerForKey(key), store.boolForKey(key)}),
                      QVariantList({row.text ? QString::fromLatin1(row.text) : QVariant(), row.text != nullptr, row.number, row.flag}))
                << key.toStdString();
        }
        store.clearRegisteredDefaults();
        EXPECT_FALSE(store.objectForKey(u"0"_s).isValid());

        // Defaults come only from a property-list dictionary.
        for (const QByteArray &text : {QByteArray(), "<plist><dict><key>serverPort</key><integer>5201"_ba, PropertyList::toXml(QVariantList{1})}) {
            QFile file(dir.filePath(u"defaults.plist"_s));
            ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(text) == text.size());
            EXPECT_FALSE(store.registerDefaultsFromFile(text.isEmpty() ? dir.filePath(u"absent"_s) : file.fileName()));
        }
        EXPECT_FALSE(store.objectForKey(u"serverPort"_s).isValid());
        ASSERT_TRUE(store.registerDefaultsFromFile(TestEnvironment::binDir() + u"/com.norvale.mactidewave-default-values.plist"_s));
        EXPECT_EQ(QList<qint64>({store.integerForKey(u"serverPort"_s), store.integerForKey(u"bufferLength"_s), store.integerForKey(u"graphMaxSpeed"_s)}),
                  QList<qint64>({5201, 128, 100}));
        store.setObject(u"6000"_s, u"serverPort"_s);
        const qint64 stored = store.integerForKey(u"serverPort"_s);
        store.removeObjectForKey(u"serverPort"_s);
        EXPECT_EQ(QList<qint64>({stored, store.integerForKey(u"serverPort"_s)}), QList<qint64>({6000, 5201}));
        store.setObject(7, u"gone"_s), store.setObject(QVariant(), u"gone"_s), store.setObject(u"10.0.0.5"_s, u"address"_s);
        ASSERT_TRUE(store.synchronize());
    }
    SettingsStore reopened(dir.filePath(u"s.ini"_s));
    EXPECT_EQ(reopened.stringForKey(u"address"_s), u"10.0.0.5"_s);
    EXPECT_FALSE(reopened.objectForKey(u"serverPort"_s).isValid() || reopened.objectForKey(u"gone"_s).isValid());
}

TEST(PropertyListTest, KeepsEveryValueKindAndRefusesOtherText)
{
    const QVariantMap item{{u"interface"_s, u"eth0"_s}, {u"order"_s, qint64(0)}, {u"negative"_s, qint64(-3)}, {u"on"_s, true},
                           {u"off"_s, false}, {u"real"_s, 2.5}, {u"data"_s, QByteArray("\x01\x00\xff", 3)},
                           {u"date"_s, QDateTime(QDate(2016, 9, 5), QTime(13, 4, 5), Qt::UTC)}};
    const QVariant root = QVariantList{QVariantMap{{u"_items"_s, QVariantList{item, u"x"_s}}}};
    EXPECT_EQ(PropertyList::fromXml(PropertyList::toXml(root)), root);
    for (const QByteArray &text : {QByteArray(), "not xml"_ba, "<plist><dict><key>a</key>"_ba, "<html></html>"_ba,
                                   QByteArray("<plist><string>a\0b</string></plist>", 35)})
        EXPECT_FALSE(PropertyList::fromXml(text).has_value()) << text.toStdString();
}

TEST(NotificationCenterTest, DeliversByNameInOrderUntilTheObserverIsRemoved)
{
    NotificationCenter center;
    QStringList calls;
    int a = 0, b = 0;
    const auto observe = [&](const int *owner, const char *name) {
        center.addObserver(owner, QLatin1String(name), [&, owner](const QVariantMap &info) {
            calls << (owner == &a ? u"a"_s : u"b"_s) + info[u"message"_s].toString();
        });
    };
    observe(&a, "n"), observe(&b, "n"), observe(&b, "other");
    center.post(u"n"_s, {{u"message"_s, u":hi"_s}});
    center.removeObserver(&b, u"n"_s), center.post(u"n"_s), center.post(u"other"_s);
    center.removeObserver(&b), center.post(u"other"_s);
    // An observer removed in the middle of a post is not called by it.
    center.addObserver(&b, u"n"_s, [&](const QVariantMap &) { center.removeObserver(&a); }), observe(&a, "n");
    center.post(u"n"_s);
    EXPECT_EQ(calls, QStringList({u"a:hi"_s, u"b:hi"_s, u"a"_s, u"b"_s, u"a"_s}));
}

struct Sink : LogSink
{
    Sink(const char *id, QStringList *order) : id(QString::fromLatin1(id)), order(order) {}
    void write(const LogMessage &message) override { got << message, *order << id; }
    QString id;
    QStringList *order;
    QList<LogMessage> got;
};

TEST(Logger, EveryStatementReachesTheSinksInOrderWithItsCallSite)
{
    QStringList names;
    for (const char *path : {TIDEWAVE_SOURCE_ROOT "PerfHelper/PerfTest.cpp", "/elsewhere/src/client/ClientTab.cpp", "/x/src/dir.d/file", "main.cpp", "Makefile"})
        names << Logger::sourceNameFromPath(path);
    EXPECT_EQ(names, QStringList({u"PerfHelper/PerfTest"_s, u"client/ClientTab"_s, u"dir.d/file"_s, u"main"_s, u"Makefile"_s}));

    QStringList order;
    auto first = std::make_shared<Sink>("first", &order), second = std::make_shared<Sink>("second", &order);
    Logger::shared().addSink(first), Logger::shared().addSink(second);
    const int line = __LINE__ + 1;
    TW_LOG(u"hello"_s);
    Logger::shared().removeSink(first);
    TW_LOG(u"again"_s);
    Logger::shared().removeAllSinks();
    TW_LOG(u"nobody hears"_s);
    EXPECT_EQ(order, QStringList({u"first"_s, u"second"_s, u"second"_s}));
    ASSERT_EQ(first->got.size(), 1);
    const LogMessage &m = first->got.first();
    EXPECT_EQ(QVariantList({m.message, m.function, m.line, m.threadId}), QVariantList({u"hello"_s, u"TestBody"_s, line, quint64(::syscall(SYS_gettid))}));
    EXPECT_TRUE(m.file.endsWith(u"tests/shell/ShellTest"_s) && qAbs(m.timestamp.secsTo(QDateTime::currentDateTime())) < 5) << m.file.toStdString();

    // The terminal's line: time, full program name, pid, thread in hex.
    const LogMessage stamped{u"PerfTest: héllo"_s, {}, {}, 0, QDateTime(QDate(2016, 9, 5), QTime(15, 4, 5, 7)), 0x1a2b};
    EXPECT_EQ(DDTTYLogger::formattedLine(stamped), u"2016-09-05 15:04:05:007 %1[%2:1a2b] PerfTest: héllo\n"_s
                                                       .arg(QString::fromLocal8Bit(program_invocation_short_name)).arg(::getpid()).toUtf8());
}

using Manager = DDLogFileManagerDefault;

// A temporary log folder; with a ramfs mounted on it when asked (a file system that refuses user extended attributes).
struct Folder
{
    explicit Folder(bool withoutAttributes = false)
        : mounted(withoutAttributes && !::mount("tw", QFile::encodeName(dir.path()).constData(), "ramfs", 0, nullptr)) {}
    ~Folder()
    {
        if (mounted)
            ::umount2(QFile::encodeName(dir.path()).constData(), MNT_DETACH);
    }
    QString file(const QString &name) const { return dir.filePath(name); }
    // Files made one after another sort newest first by birth, then by name.
    QString make(int number, const QByteArray &text = "old\n") const
    {
        QFile out(file(u"log-%1.txt"_s.arg(number, 6, 10, QLatin1Char('0'))));
        return out.open(QIODevice::WriteOnly) && out.write(text) ? out.fileName() : QString();
    }
    QStringList logs() const { return QDir(dir.path()).entryList(QDir::Files, QDir::Name).filter(QRegularExpression(u"^log-[0-9A-F]{6}"_s)); }
    QTemporaryDir dir;
    const bool mounted;
};

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

LogMessage message(const char *text) { return {QString::fromLatin1(text), {}, {}, 0, QDateTime(QDate(2016, 9, 5), QTime(15, 4, 5, 7)), 0}; }
QByteArray line(const char *text) { return "2016/09/05 15:04:05:007  "_ba + text + '\n'; }

TEST(LogFiles, AreNamedLogAndHexMadeWithTheirFolderPrunedToTheNewestArchivesAndMarkedInAttributesOrMemory)
{
    const struct { const char *name; bool log; } names[] = {{"log-ABC123.txt", true}, {"log-abc123.txt", false},
        {"log-AB.txt", false}, {"log-ABC123", true}, {"log-ABC12", false}, {"log-ABC12.txt", false},
        {"log-ABCDEF0123.txt", true}, {"log-ABG123.txt", false}, {"Log-ABC123.txt", false},
        {"xlog-ABC123.txt", false}, {"log-ABC123.log", true}, {"log-9F0A1E", true}, {"log-GABCDE", false}};
    for (const auto &row : names)
        EXPECT_EQ(Manager::isLogFile(QString::fromLatin1(row.name)), row.log) << row.name;

    Folder folder;
    const QString made = Manager(folder.file(u"made/on/demand"_s)).createNewLogFile();
    EXPECT_TRUE(QRegularExpression(u"/made/on/demand/log-[0-9A-F]{6}\\.txt$"_s).match(made).hasMatch()) << made.toStdString();
    EXPECT_EQ(contents(made), QByteArray());
    QFile(folder.file(u"plain"_s)).open(QIODevice::WriteOnly);
    EXPECT_TRUE(Manager(folder.file(u"plain/logs"_s)).createNewLogFile().isNull());

    const struct { int archived; bool current; int keep, left; } rows[] = {
        {8, true, 7, 8}, {8, false, 7, 7}, {3, true, 7, 4}, {9, true, 0, 10}, {3, true, 1, 2}};
    for (const auto &row : rows) {
        Folder folder;
        Manager manager(folder.dir.path());
        manager.setMaximumNumberOfLogFiles(row.keep);
        QFile(folder.file(u"log-abcdef.txt"_s)).open(QIODevice::WriteOnly); // not a log file: never pruned
        QStringList made;
        for (int i = 0; i < row.archived + row.current; ++i)
            made << QFileInfo(folder.make(i)).fileName(), i < row.archived ? manager.markArchived(folder.file(made.last())) : void();
        manager.deleteOldLogFiles();
        EXPECT_TRUE(QFile::exists(folder.file(u"log-abcdef.txt"_s)) && folder.logs() == made.mid(made.size() - row.left))
            << row.archived << " kept " << row.keep << ": " << folder.logs().join(u' ').toStdString();
    }
    for (const bool withoutAttributes : {false, true}) {
        Folder folder(withoutAttributes);
        ASSERT_EQ(folder.mounted, withoutAttributes) << "no ramfs mount here";
        const QString path = folder.make(1);
        Manager manager(folder.dir.path());
        const bool before = manager.isArchived(path);
        manager.markArchived(path);
        // A later run sees the mark only where the attribute was set.
        EXPECT_EQ(QList<bool>({before, manager.isArchived(path), Manager(folder.dir.path()).isArchived(path)}),
                  QList<bool>({false, true, !withoutAttributes}));
    }
}

TEST(FileLogger, ContinuesTheNewestFileOnlyWhileItIsOpenSmallAndYoung)
{
    const struct { const char *what; bool archived; qint64 size; int hoursOld; bool continued; } rows[] = {
        {"open, small, young", false, 10, 0, true}, {"archived", true, 10, 0, false},
        {"room for a line", false, 1024 * 1024 - 64, 0, true}, {"full", false, 1024 * 1024, 0, false},
        {"under a day", false, 10, 23, true}, {"over a day", false, 10, 25, false}};
    for (const auto &row : rows) {
        Folder folder;
        auto manager = std::make_shared<Manager>(folder.dir.path());
        const QString older = folder.make(0, "older\n");
        const QByteArray earlier = QByteArray(row.size - 1, 'x') + '\n';
        const QString newest = folder.make(1, earlier);
        if (row.archived)
            manager->markArchived(newest);
        DDFileLogger logger(manager, [&] { return QDateTime::currentDateTimeUtc().addSecs(row.hoursOld * 3600); });
        logger.write(message("first"));
        const QByteArray continued = row.continued ? earlier + line("first") : earlier;
        EXPECT_EQ(QVariantList({contents(older), contents(newest), contents(logger.currentLogFilePath()), manager->isArchived(newest),
                                folder.logs().size()}),
                  QVariantList({"older\n"_ba, continued, row.continued ? continued : line("first"), !row.continued, row.continued ? 2 : 3}))
            << row.what;
    }
}

TEST(FileLogger, RollsAFileThatIsFullOrOld)
{
    Folder folder;
    auto manager = std::make_shared<Manager>(folder.dir.path());
    qint64 later = 0;
    DDFileLogger logger(manager, [&] { return QDateTime::currentDateTimeUtc().addSecs(later); });
    logger.setMaximumFileSize(2 * line("0").size()); // the second line fills a file
    QStringList files;
    for (const char *text : {"0", "1", "2", "3", "4"})
        logger.write(message(text)), files << logger.currentLogFilePath();
    EXPECT_TRUE(!files[0].isNull() && files[1].isNull() && files[3].isNull()) << "rolled after the line that filled it";
    EXPECT_EQ(contents(files[0]) + '|' + contents(files[2]) + '|' + contents(files[4]),
              line("0") + line("1") + '|' + line("2") + line("3") + '|' + line("4"));
    EXPECT_TRUE(manager->isArchived(files[0]) && manager->isArchived(files[2]) && !manager->isArchived(files[4]));

    logger.setMaximumFileSize(0);
    later = 24 * 3600 - 60, logger.write(message("5"));
    later = 24 * 3600, logger.write(message("6"));
    EXPECT_EQ(contents(files[4]) + '|' + contents(logger.currentLogFilePath()), line("4") + line("5") + '|' + line("6"));
    // Without further lines, the timer archives a file at its age.
    const QString young = logger.currentLogFilePath();
    logger.setRollingFrequency(0.3);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return manager->isArchived(young); }, 5s));
    EXPECT_TRUE(logger.currentLogFilePath().isNull() && folder.logs().size() == 4) << "a roll makes no file before a line needs one";
}

TEST(LoggingSetup, EveryStatementReachesTheTerminalAndTheFilesWhichKeepSevenArchives)
{
    Folder folder;
    Manager marks(folder.dir.path());
    for (int i = 0; i < 8; ++i)
        marks.markArchived(folder.make(i));
    const QString current = folder.make(9, "current\n");
    QTemporaryDir captured;
    const QString terminalPath = captured.filePath(u"stderr"_s);
    const int saved = ::dup(STDERR_FILENO), terminal = ::open(QFile::encodeName(terminalPath).constData(), O_WRONLY | O_CREAT, 0600);
    ::dup2(terminal, STDERR_FILENO);
    LoggingSetup::setupLogging(folder.dir.path());
    // A second call replaces what the first installed; the next line fills the current file.
    LoggingSetup::setupLogging(folder.dir.path())->setMaximumFileSize(8 + line("fills it").size());
    TW_LOG(u"fills it"_s), TW_LOG(u"starts the next"_s);
    Logger::shared().removeAllSinks();
    ::dup2(saved, STDERR_FILENO), ::close(saved), ::close(terminal);

    const QStringList logs = folder.logs();
    ASSERT_EQ(logs.size(), 8);
    EXPECT_EQ(logs.mid(0, 7), QStringList({u"log-000002.txt"_s, u"log-000003.txt"_s, u"log-000004.txt"_s,
                                           u"log-000005.txt"_s, u"log-000006.txt"_s, u"log-000007.txt"_s, u"log-000009.txt"_s}));
    const QString text = QString::fromUtf8(contents(terminalPath) + '|' + contents(current) + '|' + contents(folder.file(logs[7])));
    const QString tty = u"\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d:\\d{3} %1\\[%2:[0-9a-f]+\\] "_s
                            .arg(QString::fromLocal8Bit(program_invocation_short_name)).arg(::getpid());
    const QString file = u"\\d{4}/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d:\\d{3}  "_s;
    EXPECT_TRUE(QRegularExpression(u"^%1fills it\\n%1starts the next\\n\\|current\\n%2fills it\\n\\|%2starts the next\\n$"_s.arg(tty, file))
                    .match(text).hasMatch()) << text.toStdString();
    EXPECT_EQ(LoggingSetup::startBannerLines(u"1.0"_s, u"7"_s, u"6.1"_s),
              QStringList({QString(60, u'-'), u"Starting Mac Tidewave Version 1.0.7"_s, u"OS Version 6.1"_s}));
}

} // namespace
