#include "records/ResultsFile.h"

#include "shell/SettingsStore.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStringDecoder>

#include <algorithm>
#include <atomic>
#include <functional>
#include <thread>
#include <vector>
#include <cerrno>
#include <cstring>

namespace {

using RF = RecordField<PerfResult>;
using SF = RecordField<PerfHelper>;
using namespace Qt::StringLiterals;

const RF kResultFields[] = {
    {"ip"_L1, &PerfResult::ip},
    {"startTime"_L1, &PerfResult::startTime},
    {"endTime"_L1, &PerfResult::endTime},
    {"sentBytes"_L1, &PerfResult::sentBytes},
    {"sentBandwidth"_L1, &PerfResult::sentBandwidth},
    {"receivedBytes"_L1, &PerfResult::receivedBytes},
    {"receivedBandwidth"_L1, &PerfResult::receivedBandwidth},
    {"createdAt"_L1, &PerfResult::createdAt},
    {"total_packets"_L1, &PerfResult::total_packets},
    {"lost_packets"_L1, &PerfResult::lost_packets},
    {"avg_jitter"_L1, &PerfResult::avg_jitter},
    {"txPowerField"_L1, &PerfResult::txPowerField},
    {"rssiField"_L1, &PerfResult::rssiField},
    {"noiseField"_L1, &PerfResult::noiseField},
    {"ssidField"_L1, &PerfResult::ssidField},
    {"securityModeField"_L1, &PerfResult::securityModeField},
    {"bssidField"_L1, &PerfResult::bssidField},
    {"phyModeField"_L1, &PerfResult::phyModeField},
    {"txRateField"_L1, &PerfResult::txRateField},
    {"opModeField"_L1, &PerfResult::opModeField},
    {"channeField"_L1, &PerfResult::channeField},
    {"bandwidthformat"_L1, &PerfResult::bandwidthformat},
    {"OSXVersion"_L1, &PerfResult::OSXVersion},
    {"localIP"_L1, &PerfResult::localIP},
    {"interfaceName"_L1, &PerfResult::interfaceName},
    {"reverse"_L1, &PerfResult::reverse},
    {"receivedBandwidth1"_L1, &PerfResult::receivedBandwidth1},
    {"receivedBytes1"_L1, &PerfResult::receivedBytes1},
    {"intervals"_L1, &PerfResult::intervals},
    {"typeName"_L1, &PerfResult::typeName},
    {"jitter"_L1, &PerfResult::jitter},
    {"lostTotalDataGrams"_L1, &PerfResult::lostTotalDataGrams},
    {"totalDataGrams"_L1, &PerfResult::totalDataGrams},
    {"currentDate"_L1, &PerfResult::currentDate},
    {"direction"_L1, &PerfResult::direction},
    {"retransmits"_L1, &PerfResult::retransmits},
    {"roundTripMs"_L1, &PerfResult::roundTripMs},
    {"congestionWindow"_L1, &PerfResult::congestionWindow},
    {"udpJitterMs"_L1, &PerfResult::udpJitterMs},
    {"udpLostDatagrams"_L1, &PerfResult::udpLostDatagrams},
    {"udpTotalDatagrams"_L1, &PerfResult::udpTotalDatagrams},
};

// A record that grew a member the list above does not store would lose it
// on every save: add the member's line above, then the new size here.
static_assert(sizeof(PerfResult) == 640, "PerfResult changed: keep kResultFields in step with it");

const SF kSettingsFields[] = {
    {"serverIP"_L1, &PerfHelper::serverIP},
    {"serverPort"_L1, &PerfHelper::serverPort},
    {"localIP"_L1, &PerfHelper::localIP},
    {"duration"_L1, &PerfHelper::duration},
    {"stats_interval"_L1, &PerfHelper::stats_interval},
    {"testType"_L1, &PerfHelper::testType},
    {"reverse"_L1, &PerfHelper::reverse},
    {"bandwidthformat"_L1, &PerfHelper::bandwidthformat},
    {"sendBandwidth"_L1, &PerfHelper::sendBandwidth},
    {"bufferLength"_L1, &PerfHelper::bufferLength},
    {"datagramSize"_L1, &PerfHelper::datagramSize},
    {"graphMaxSpeed"_L1, &PerfHelper::graphMaxSpeed},
    {"testLabel"_L1, &PerfHelper::testLabel},
    {"isTestRunning"_L1, &PerfHelper::isTestRunning},
    {"isSelected"_L1, &PerfHelper::isSelected},
    {"index"_L1, &PerfHelper::index},
    {"invalidTestDuration"_L1, &PerfHelper::invalidTestDuration},
    {"parallelStreams"_L1, &PerfHelper::parallelStreams},
    {"twoWay"_L1, &PerfHelper::twoWay},
};

// As above, for the settings record.
static_assert(sizeof(PerfHelper) == 312, "PerfHelper changed: keep kSettingsFields in step with it");

// Variants may hold lists, which would read as a column: always stored per record.
bool isVariant(const RF &field)
{
    return std::holds_alternative<QVariant PerfResult::*>(field.member);
}

// Start times are always a list, one per interval, so every file we write
// takes at least two bytes per interval: a reader may then refuse counts
// beyond the file's size before making any record.
bool alwaysListed(const RF &field)
{
    return isVariant(field) || field.member == RF::Member(&PerfResult::startTime);
}

QJsonObject recordToJson(const PerfResult &record)
{
    QJsonObject object;
    for (const RF &field : kResultFields)
        object.insert(field.name, RecordFields::toJson(record, field.member));
    return object;
}

// Interval records oldest first, by column. Each column is dispatched on its
// member's type once and then walks the records.
QJsonObject intervalsToJson(const PerfResultList &newestFirst)
{
    QJsonObject columns;
    const qsizetype n = newestFirst.size();
    for (const RF &field : kResultFields) {
        columns.insert(field.name, std::visit([&](auto member) -> QJsonValue {
            if (n && !alwaysListed(field)) {
                const auto &first = newestFirst.last().get()->*member;
                const bool same = std::all_of(newestFirst.cbegin(), newestFirst.cend(), [&](const PerfResultPtr &r) {
                    return RecordFields::sameValue(r.get()->*member, first);
                });
                if (same)
                    return RecordFields::valueToJson(first);
            }
            QJsonArray values;
            for (qsizetype i = n - 1; i >= 0; --i)
                values.append(RecordFields::valueToJson(newestFirst.at(i).get()->*member));
            return values;
        }, field.member));
    }
    return columns;
}

// A failure while reading: what is wrong, naming the test.
struct Failure
{
    QString what;
};

QString wrongValue(const QString &where, QLatin1StringView name)
{
    return QStringLiteral("%1 has a wrong value for \"%2\"").arg(where, name);
}

void recordFromJson(const QJsonObject &object, PerfResult &record, const QString &where)
{
    for (const RF &field : kResultFields) {
        const QJsonValue value = object.value(field.name);
        if (!value.isUndefined() && !RecordFields::fromJson(record, field.member, value))
            throw Failure{wrongValue(where, field.name)};
    }
}

// The records of a test's columns, newest first; on a fault, the error and no records.
PerfResultList intervalsFromJson(const QJsonObject &columns, qsizetype n, const QString &where, QString &error)
{
    PerfResultList newestFirst(n);
    for (PerfResultPtr &record : newestFirst)
        record = std::make_shared<PerfResult>();
    for (const RF &field : kResultFields) {
        const QJsonValue value = columns.value(field.name);
        if (n && alwaysListed(field) && !value.isArray()) {
            error = QStringLiteral("%1 has no list of \"%2\"").arg(where, field.name);
            return {};
        }
        if (value.isUndefined())
            continue;
        if (value.isArray() && value.toArray().size() != n) {
            error = QStringLiteral("%1 holds %2 values of \"%3\" for %4 intervals")
                        .arg(where).arg(value.toArray().size()).arg(field.name).arg(n);
            return {};
        }
        const bool read = std::visit([&](auto member) {
            using T = std::decay_t<decltype(PerfResult().*member)>;
            if (value.isArray()) {
                const QJsonArray values = value.toArray();
                for (qsizetype i = 0; i < n; ++i) {
                    if (!RecordFields::valueFromJson(values.at(i), newestFirst.at(n - 1 - i).get()->*member))
                        return false;
                }
                return true;
            }
            // One value for every record: read once, then shared.
            T one{};
            if (isVariant(field) || !RecordFields::valueFromJson(value, one))
                return false;
            for (const PerfResultPtr &record : newestFirst)
                record.get()->*member = one;
            return true;
        }, field.member);
        if (!read) {
            error = wrongValue(where, field.name);
            return {};
        }
    }
    return newestFirst;
}

// Runs work(0) … work(count - 1) on up to as many threads as the machine has
// cores when the records are many: the columns of different tests share
// nothing. A few thousand records are quicker than starting a thread.
void forEachInParallel(qsizetype count, qint64 records, const std::function<void(qsizetype)> &work)
{
    const int cores = records < 20000 ? 1 : std::clamp(int(std::thread::hardware_concurrency()), 1, 8);
    const qsizetype threads = std::min<qsizetype>(count, cores);
    std::atomic<qsizetype> next = 0;
    const auto worker = [&] {
        for (qsizetype i = next++; i < count; i = next++)
            work(i);
    };
    std::vector<std::thread> pool;
    for (qsizetype t = 1; t < threads; ++t)
        pool.emplace_back(worker);
    worker();
    for (std::thread &thread : pool)
        thread.join();
}

QString displayName(const QString &fileName)
{
    return QStringLiteral("\"%1\"").arg(QFileInfo(fileName).fileName());
}

QString readFailure(const QString &fileName, const QString &what)
{
    return QStringLiteral("Could not open %1: %2.").arg(displayName(fileName), what);
}

} // namespace

namespace ResultsFile {

std::span<const RecordField<PerfResult>> resultFields()
{
    return kResultFields;
}

std::span<const RecordField<PerfHelper>> settingsFields()
{
    return kSettingsFields;
}

QByteArray serialize(const QList<SavedTest> &tests, const QString &application)
{
    // Each test is written by Qt's JSON writer on its own, side by side when
    // they are many, and the texts are joined into the list of the envelope
    // Qt writes: the writer, not the building, is most of the time.
    QList<QByteArray> texts(tests.size());
    qint64 records = 0;
    for (const SavedTest &saved : tests)
        records += saved.test->resultss.size();
    forEachInParallel(tests.size(), records, [&](qsizetype t) {
        const SavedTest &saved = tests.at(t);
        QJsonObject settings;
        for (const SF &field : kSettingsFields)
            settings.insert(field.name, RecordFields::toJson(*saved.test, field.member));
        QJsonObject test;
        test.insert("settings"_L1, settings);
        test.insert("startDate"_L1, RecordFields::valueToJson(saved.extras.startDate));
        test.insert("note"_L1, saved.extras.note);
        test.insert("intervalCount"_L1, saved.test->resultss.size());
        test.insert("intervals"_L1, intervalsToJson(saved.test->resultss));
        test.insert("final"_L1, saved.extras.finalResult ? QJsonValue(recordToJson(*saved.extras.finalResult))
                                                         : QJsonValue(QJsonValue::Null));
        texts[t] = QJsonDocument(test).toJson(QJsonDocument::Compact);
    });
    QJsonObject root;
    root.insert("format"_L1, kFormat);
    root.insert("version"_L1, kVersion);
    root.insert("application"_L1, application);
    root.insert("tests"_L1, QJsonArray());
    const QByteArray envelope = QJsonDocument(root).toJson(QJsonDocument::Compact);
    // Quotes inside string values are escaped, so this is the key itself.
    const qsizetype list = envelope.indexOf("\"tests\":[]") + qsizetype(strlen("\"tests\":["));
    qsizetype size = envelope.size() + tests.size();
    for (const QByteArray &text : std::as_const(texts))
        size += text.size();
    QByteArray out;
    out.reserve(size);
    out += QByteArrayView(envelope).first(list);
    for (qsizetype t = 0; t < texts.size(); ++t) {
        if (t)
            out += ',';
        out += texts.at(t);
    }
    out += QByteArrayView(envelope).sliced(list);
    return out;
}

ReadResult parse(const QByteArray &bytes, const QString &fileName, SettingsStore &store)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    // A file cut inside a character is cut short, not in another encoding.
    QStringDecoder utf8(QStringDecoder::Utf8);
    if (error.error == QJsonParseError::IllegalUTF8String && (QString(utf8(bytes)), utf8.hasError()))
        return {{}, readFailure(fileName, QStringLiteral("it is not UTF-8 text"))};
    if (error.error != QJsonParseError::NoError)
        return {{}, readFailure(fileName, QStringLiteral("it is cut short or damaged (%1 at byte %2)")
                                              .arg(error.errorString()).arg(error.offset))};
    const QJsonObject root = document.object();
    if (!document.isObject() || root.value("format"_L1).toString() != kFormat)
        return {{}, readFailure(fileName, QStringLiteral("it is not a Tidewave results file"))};
    qint64 version = 0;
    if (!RecordFields::integerFromJson(root.value("version"_L1), version) || version < 1)
        return {{}, readFailure(fileName, QStringLiteral("its format version is missing or not valid"))};
    if (version > kVersion)
        return {{}, readFailure(fileName, QStringLiteral("it was written by a newer Tidewave (format version %1; "
                                                         "this version reads up to %2)")
                                              .arg(version).arg(kVersion))};
    if (!root.value("tests"_L1).isArray())
        return {{}, readFailure(fileName, QStringLiteral("it holds no list of tests"))};

    ReadResult result;
    // No file holds more intervals than bytes, whatever its counts claim.
    qint64 budget = bytes.size();
    const QJsonArray tests = root.value("tests"_L1).toArray();
    // Everything but the intervals first, in order; then the intervals of
    // the tests read so far, side by side.
    QList<QJsonObject> columns;
    QList<qint64> counts;
    QString failure;
    try {
        for (qsizetype t = 0; t < tests.size(); ++t) {
            const QString where = QStringLiteral("test %1").arg(t + 1);
            const QJsonObject test = tests.at(t).toObject();
            if (!tests.at(t).isObject() || !test.value("settings"_L1).isObject()
                || !test.value("intervals"_L1).isObject())
                throw Failure{QStringLiteral("%1 is not a test").arg(where)};
            SavedTest saved{std::make_shared<PerfHelper>(store), {}};
            const QJsonObject settings = test.value("settings"_L1).toObject();
            for (const SF &field : kSettingsFields) {
                const QJsonValue value = settings.value(field.name);
                if (!value.isUndefined() && !RecordFields::fromJson(*saved.test, field.member, value))
                    throw Failure{wrongValue(where, field.name)};
            }
            saved.test->isTestRunning = 0; // whatever it was doing when saved, it is over
            qint64 count = 0;
            if (!RecordFields::integerFromJson(test.value("intervalCount"_L1), count) || count < 0 || count > budget)
                throw Failure{QStringLiteral("%1 has a wrong interval count").arg(where)};
            budget -= count;
            const QJsonValue start = test.value("startDate"_L1);
            if (!start.isNull() && !start.isUndefined()) {
                saved.extras.startDate = QDateTime::fromString(start.toString(), Qt::ISODateWithMs);
                if (!saved.extras.startDate.isValid())
                    throw Failure{QStringLiteral("%1 has a wrong start date").arg(where)};
            }
            const QJsonValue note = test.value("note"_L1);
            if (!note.isString() && !note.isUndefined())
                throw Failure{QStringLiteral("%1 has a wrong note").arg(where)};
            saved.extras.note = note.toString();
            const QJsonValue final = test.value("final"_L1);
            if (final.isObject()) {
                saved.extras.finalResult = std::make_shared<PerfResult>();
                recordFromJson(final.toObject(), *saved.extras.finalResult, where + QStringLiteral("'s final record"));
            } else if (!final.isNull() && !final.isUndefined()) {
                throw Failure{QStringLiteral("%1 has a wrong final record").arg(where)};
            }
            result.tests.append(std::move(saved));
            columns.append(test.value("intervals"_L1).toObject());
            counts.append(count);
        }
    } catch (const Failure &found) {
        failure = found.what;
    }
    QList<QString> errors(columns.size());
    forEachInParallel(columns.size(), bytes.size() - budget, [&](qsizetype t) {
        result.tests[t].test->resultss = intervalsFromJson(columns.at(t), counts.at(t),
                                                           QStringLiteral("test %1's intervals").arg(t + 1), errors[t]);
    });
    for (const QString &error : std::as_const(errors)) {
        if (!error.isEmpty())
            return {{}, readFailure(fileName, error)};
    }
    if (!failure.isEmpty())
        return {{}, readFailure(fileName, failure)};
    return result;
}

QString writeFile(const QString &path, const QByteArray &bytes)
{
    QSaveFile file(path);
    const auto failure = [&](const QString &why) {
        return QStringLiteral("Could not save %1: %2.").arg(displayName(path), why);
    };
    // Unbuffered, so a full disk is reported by the write that meets it.
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return failure(file.errorString());
    errno = 0;
    if (file.write(bytes) != bytes.size()) {
        // Qt's own text for a failed write is "Unknown error"; the system's says why.
        const int code = errno;
        const QString why = code ? QString::fromLocal8Bit(std::strerror(code)) : file.errorString();
        file.cancelWriting();
        return failure(why);
    }
    if (!file.commit())
        return failure(file.errorString());
    return QString();
}

QString write(const QString &path, const QList<SavedTest> &tests, const QString &application)
{
    return writeFile(path, serialize(tests, application));
}

ReadResult read(const QString &path, SettingsStore &settings)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {{}, readFailure(path, QStringLiteral("it cannot be read (%1)").arg(file.errorString()))};
    return parse(file.readAll(), path, settings);
}

} // namespace ResultsFile
