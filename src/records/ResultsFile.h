#pragma once

#include "PerfHelper/PerfHelper.h"
#include "records/PerfResult.h"
#include "records/RecordFields.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

#include <span>

class SettingsStore;

// What the test list keeps of a test besides its coordinator.
struct TestExtras
{
    PerfResultPtr finalResult; // the final record, null when the test ended without one
    QDateTime startDate;       // when the run started
    QString note;              // the user's free text
};

// One test of a results file: its settings record and interval records (in
// the coordinator), and the rest.
struct SavedTest
{
    PerfHelperPtr test;
    TestExtras extras;
};

// The results file (*.tidewave.json): tests kept on the user's request and
// opened again later, in Qt's JSON. A versioned envelope ("format", "version",
// "application") around a list of tests; each test holds its settings record,
// start date, note, the final record and its interval records stored by
// column (a column whose records all agree is one value), which keeps a file
// of hundreds of thousands of intervals small and quick to read.
namespace ResultsFile {

inline constexpr int kVersion = 1;
inline constexpr QLatin1StringView kFormat{"Tidewave results"};
inline constexpr QLatin1StringView kSuffix{".tidewave.json"};

// Every stored member of a record and of a test's settings; adding a member
// to either type means adding its line here.
std::span<const RecordField<PerfResult>> resultFields();
std::span<const RecordField<PerfHelper>> settingsFields();

struct ReadResult
{
    QList<SavedTest> tests; // as stored; empty on error
    QString error;          // one sentence naming the file; empty on success
};

// The file's bytes for these tests, written by the given application.
QByteArray serialize(const QList<SavedTest> &tests, const QString &application);
// Tests from a file's bytes, their coordinators made over the settings store
// and marked as not running. `fileName` names the file in the error.
ReadResult parse(const QByteArray &bytes, const QString &fileName, SettingsStore &settings);

// Write atomically: on failure the file at the path is left as it was.
// Each answers the error sentence naming the file, or an empty string.
QString writeFile(const QString &path, const QByteArray &bytes);
QString write(const QString &path, const QList<SavedTest> &tests, const QString &application);
ReadResult read(const QString &path, SettingsStore &settings);

} // namespace ResultsFile
