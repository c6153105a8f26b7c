#include "client/TestFileActions.h"

#include "client/AlertPresenter.h"
#include "client/PerfResultTableModel.h"
#include "client/SpeedGraph.h"
#include "client/TestInformationView.h"
#include "client/TestListModel.h"
#include "shell/NotificationCenter.h"

#include <QAction>
#include <QBuffer>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QPainter>
#include <QSvgGenerator>

namespace {

// RFC 4180's one rule: a field holding a comma, a quote or a line break is
// quoted, with its quotes doubled.
QByteArray csvField(const QString &text)
{
    QByteArray bytes = text.toUtf8();
    if (!bytes.contains(',') && !bytes.contains('"') && !bytes.contains('\n') && !bytes.contains('\r'))
        return bytes;
    bytes.replace("\"", "\"\"");
    return '"' + bytes + '"';
}

void appendRow(QByteArray &out, const QStringList &fields)
{
    for (qsizetype i = 0; i < fields.size(); ++i) {
        if (i)
            out += ',';
        out += csvField(fields.at(i));
    }
    out += "\r\n";
}

QString fileName(const QString &path)
{
    return QStringLiteral("\"%1\"").arg(QFileInfo(path).fileName());
}

} // namespace

TestFileActions::TestFileActions(TestListModel &model, TestInformationView &detailView, AlertPresenter &alerts,
                                 SettingsStore &settings, QWidget *dialogParent, QObject *parent)
    : QObject(parent)
    , m_model(model)
    , m_detailView(detailView)
    , m_alerts(alerts)
    , m_settings(settings)
    , m_dialogParent(dialogParent)
    , m_folder(QDir::homePath())
{
    const QString results = tr("Tidewave results (*%1)").arg(ResultsFile::kSuffix);
    const auto add = [this](const QString &text, auto handler) {
        auto *action = new QAction(text, this);
        connect(action, &QAction::triggered, this, handler);
        m_actions.append(action);
        return action;
    };
    add(tr("Save Tests…"), [this, results] {
        const QString path = chooseSavePath(tr("Save Tests"), results, ResultsFile::kSuffix);
        if (!path.isEmpty())
            saveTests(path);
    })->setShortcut(QKeySequence::Save);
    add(tr("Open Tests…"), [this, results] {
        const QString path = QFileDialog::getOpenFileName(m_dialogParent, tr("Open Tests"), m_folder,
                                                          results + QStringLiteral(";;") + tr("All files (*)"));
        if (path.isEmpty())
            return;
        m_folder = QFileInfo(path).path();
        openTests(path);
    })->setShortcut(QKeySequence::Open);
    add(tr("Export CSV…"), [this] {
        const QString path = chooseSavePath(tr("Export CSV"), tr("CSV (*.csv)"), QStringLiteral(".csv"));
        if (!path.isEmpty())
            exportCsv(path);
    });
    add(tr("Export Graph as PNG…"), [this] {
        const QString path = chooseSavePath(tr("Export Graph"), tr("PNG image (*.png)"), QStringLiteral(".png"));
        if (!path.isEmpty())
            exportGraph(path);
    });
    add(tr("Export Graph as SVG…"), [this] {
        const QString path = chooseSavePath(tr("Export Graph"), tr("SVG image (*.svg)"), QStringLiteral(".svg"));
        if (!path.isEmpty())
            exportGraph(path);
    });
}

QString TestFileActions::applicationName()
{
    return QStringLiteral("Tidewave %1 (build %2)").arg(QStringLiteral(TIDEWAVE_VERSION), QStringLiteral(TIDEWAVE_BUILD_NUMBER));
}

QString TestFileActions::chooseSavePath(const QString &title, const QString &filter, const QString &suffix)
{
    // The shown test's label names the file unless the user types another name.
    const PerfHelperPtr shown = m_detailView.perfHelper();
    QString name = shown && !shown->testLabel.trimmed().isEmpty() ? shown->testLabel.trimmed() : tr("Tests");
    name.replace(QLatin1Char('/'), QLatin1Char('-'));
    QString path = QFileDialog::getSaveFileName(m_dialogParent, title, QDir(m_folder).filePath(name + suffix), filter);
    if (path.isEmpty())
        return path;
    if (!path.endsWith(suffix, Qt::CaseInsensitive))
        path += suffix;
    m_folder = QFileInfo(path).path();
    return path;
}

QString TestFileActions::failed(const QString &message)
{
    m_alerts.showAlert(m_dialogParent, message);
    return message;
}

void TestFileActions::postInfoMessage(const QString &message)
{
    NotificationCenter::defaultCenter().post(QStringLiteral("showInfoMessage"), {{QStringLiteral("message"), message}});
}

QString TestFileActions::saveTests(const QString &path)
{
    QList<PerfHelperPtr> tests = m_model.tickedTests();
    const PerfHelperPtr shown = m_detailView.perfHelper();
    if (tests.isEmpty() && shown && !shown->isTestRunning)
        tests.append(shown);
    if (tests.isEmpty())
        return failed(tr("Nothing was saved to %1: tick the finished tests to save, or select one.").arg(fileName(path)));
    const QString error = ResultsFile::write(path, m_model.savedTests(tests), applicationName());
    if (!error.isEmpty())
        return failed(error);
    postInfoMessage(tr("Saved %n test(s) to %1.", nullptr, int(tests.size())).arg(fileName(path)));
    return QString();
}

QString TestFileActions::openTests(const QString &path)
{
    const ResultsFile::ReadResult read = ResultsFile::read(path, m_settings);
    if (!read.error.isEmpty())
        return failed(read.error);
    // The file's first test ends up on top, as it was in the list it came from.
    for (qsizetype i = read.tests.size() - 1; i >= 0; --i)
        m_model.insertTestAtFront(read.tests.at(i).test, read.tests.at(i).extras);
    postInfoMessage(tr("Opened %n test(s) from %1.", nullptr, int(read.tests.size())).arg(fileName(path)));
    emit testsOpened(int(read.tests.size()));
    return QString();
}

QByteArray TestFileActions::csv(const PerfHelper &test, const TestExtras &extras)
{
    const QStringList &identifiers = PerfResultTableModel::defaultColumnIdentifiers();
    QStringList header{QStringLiteral("Record")};
    for (const QString &identifier : identifiers)
        header << PerfResultTableModel::headerForIdentifier(identifier);
    header << QStringLiteral("Note");
    QByteArray out;
    appendRow(out, header);
    const auto row = [&](const PerfResult &record, const QString &kind, bool first, const PerfResult *earlier) {
        QStringList fields{kind};
        for (const QString &identifier : identifiers)
            fields << PerfResultTableModel::cellValue(record, identifier, earlier).toString();
        fields << (first ? extras.note : QString());
        appendRow(out, fields);
    };
    bool first = true;
    for (qsizetype i = test.resultss.size() - 1; i >= 0; --i, first = false)
        row(*test.resultss.at(i), QStringLiteral("interval"), first, test.resultss.value(i + 1).get());
    if (extras.finalResult)
        row(*extras.finalResult, QStringLiteral("final"), first, nullptr);
    return out;
}

QString TestFileActions::exportCsv(const QString &path)
{
    const PerfHelperPtr shown = m_detailView.perfHelper();
    if (!shown)
        return failed(tr("Nothing was exported to %1: select a test first.").arg(fileName(path)));
    const QByteArray bytes = csv(*shown, m_model.extras(shown.get()));
    const QString error = ResultsFile::writeFile(path, bytes);
    if (!error.isEmpty())
        return failed(error);
    postInfoMessage(tr("Exported %1.").arg(fileName(path)));
    return QString();
}

QString TestFileActions::exportGraph(const QString &path)
{
    SpeedGraph *graph = m_detailView.graph();
    if (!m_detailView.perfHelper() && !graph->isComparing())
        return failed(tr("Nothing was exported to %1: select a test first.").arg(fileName(path)));
    const QSize size = graph->size();
    QByteArray bytes;
    {
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::WriteOnly);
        if (path.endsWith(QLatin1String(".svg"), Qt::CaseInsensitive)) {
            QSvgGenerator generator;
            generator.setOutputDevice(&buffer);
            generator.setSize(size);
            generator.setViewBox(QRect(QPoint(0, 0), size));
            // CSS pixels, as browsers and drawing programs read the size.
            generator.setResolution(96);
            generator.setTitle(graph->graphTitle());
            QPainter painter(&generator);
            graph->render(&painter);
        } else {
            graph->grab().save(&buffer, "PNG");
        }
    }
    const QString error = ResultsFile::writeFile(path, bytes);
    if (!error.isEmpty())
        return failed(error);
    postInfoMessage(tr("Exported %1.").arg(fileName(path)));
    return QString();
}
