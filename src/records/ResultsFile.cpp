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

QJsonObject recordToJson(const PerfResult &record)
{
    QJsonObject object;
    for (const RF &field : kResultFields)
        object.insert(field.name, RecordFields::toJson(record, field.member));
    return object;
}

// Interval records oldest first, by column.
QJsonObject intervalsToJson(const PerfResultList &newestFirst)
{
    QJsonObject columns;
    const qsizetype n = newestFirst.size();
    for (const RF &field : kResultFields) {
        const PerfResult *first = n ? newestFirst.last().get() : nullptr;
        const bool same = first && !isVariant(field)
                          && std::all_of(newestFirst.cbegin(), newestFirst.cend(), [&](const PerfResultPtr &r) {
                                 return RecordFields::equal(*r, *first, field.member);
                             });
        if (same) {
            columns.insert(field.name, RecordFields::toJson(*first, field.member));
            continue;
        }
        QJsonArray values;
        for (qsizetype i = n - 1; i >= 0; --i)
            values.append(RecordFields::toJson(*newestFirst.at(i), field.member));
        columns.insert(field.name, values);
    }
    return columns;
}

// A failure while reading: the test (from 1) and what is wrong with it.
struct Failure
{
    QString what;
};

void recordFromJson(const QJsonObject &object, PerfResult &record, const QString &where)
{
    for (const RF &field : kResultFields) {
        const QJsonValue value = object.value(field.name);
        if (!value.isUndefined() && !RecordFields::fromJson(record, field.member, value))
            throw Failure{QStringLiteral("%1 has a wrong value for \"%2\"").arg(where, field.name)};
    }
}

PerfResultList intervalsFromJson(const QJsonObject &columns, qsizetype n, const QString &where)
{
    QList<PerfResult> records(n);
    for (const RF &field : kResultFields) {
        const QJsonValue value = columns.value(field.name);
        if (value.isUndefined())
            continue;
        const auto wrong = [&] {
            return Failure{QStringLiteral("%1 has a wrong value for \"%2\"").arg(where, field.name)};
        };
        if (value.isArray()) {
            const QJsonArray values = value.toArray();
            if (values.size() != n)
                throw Failure{QStringLiteral("%1 holds %2 values of \"%3\" for %4 intervals")
                                  .arg(where).arg(values.size()).arg(field.name).arg(n)};
            for (qsizetype i = 0; i < n; ++i) {
                if (!RecordFields::fromJson(records[i], field.member, values.at(i)))
                    throw wrong();
            }
        } else if (!isVariant(field)) {
            // One value for every record: read once, then copied.
            PerfResult one;
            if (!RecordFields::fromJson(one, field.member, value))
                throw wrong();
            std::visit([&](auto member) {
                for (PerfResult &record : records)
                    record.*member = one.*member;
            }, field.member);
        } else {
            throw wrong();
        }
    }
    PerfResultList newestFirst;
    newestFirst.reserve(n);
    for (qsizetype i = n - 1; i >= 0; --i)
        newestFirst.append(std::make_shared<PerfResult>(std::move(records[i])));
    return newestFirst;
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
    QJsonArray list;
    for (const SavedTest &saved : tests) {
        QJsonObject settings;
        for (const SF &field : kSettingsFields)
            settings.insert(field.name, RecordFields::toJson(*saved.test, field.member));
        QJsonObject test;
        test.insert("settings"_L1, settings);
        test.insert("startDate"_L1, saved.extras.startDate.isValid()
                                        ? QJsonValue(saved.extras.startDate.toUTC().toString(Qt::ISODateWithMs))
                                        : QJsonValue(QJsonValue::Null));
        test.insert("note"_L1, saved.extras.note);
        test.insert("intervalCount"_L1, saved.test->resultss.size());
        test.insert("intervals"_L1, intervalsToJson(saved.test->resultss));
        test.insert("final"_L1, saved.extras.finalResult ? QJsonValue(recordToJson(*saved.extras.finalResult))
                                                         : QJsonValue(QJsonValue::Null));
        list.append(test);
    }
    QJsonObject root;
    root.insert("format"_L1, kFormat);
    root.insert("version"_L1, kVersion);
    root.insert("application"_L1, application);
    root.insert("tests"_L1, list);
    return QJsonDocument(root).toJson(QJsonDocument::Compact);
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
                    throw Failure{QStringLiteral("%1 has a wrong value for \"%2\"").arg(where, field.name)};
            }
            saved.test->isTestRunning = 0; // whatever it was doing when saved, it is over
            qint64 count = 0;
            if (!RecordFields::integerFromJson(test.value("intervalCount"_L1), count) || count < 0 || count > budget)
                throw Failure{QStringLiteral("%1 has a wrong interval count").arg(where)};
            budget -= count;
            saved.test->resultss = intervalsFromJson(test.value("intervals"_L1).toObject(), count,
                                                     where + QStringLiteral("'s intervals"));
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
        }
    } catch (const Failure &failure) {
        return {{}, readFailure(fileName, failure.what)};
    }
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
