#include "client/TestListModel.h"

#include "client/AlertPresenter.h"

#include <QFont>

const QStringList &TestListModel::columnIdentifiers()
{
    static const QStringList identifiers{QStringLiteral("checkbox"), QStringLiteral("testLabel"),
                                         QStringLiteral("testStatus")};
    return identifiers;
}

TestListModel::TestListModel(AlertPresenter &alerts, QObject *parent)
    : QAbstractTableModel(parent)
    , m_alerts(alerts)
{
}

void TestListModel::insertTestAtFront(PerfHelperPtr test, TestExtras extras)
{
    if (!extras.startDate.isValid())
        extras.startDate = QDateTime::currentDateTime();
    beginInsertRows(QModelIndex(), 0, 0);
    m_extras.insert(test.get(), std::move(extras));
    m_tests.prepend(std::move(test));
    endInsertRows();
}

void TestListModel::setFinalResult(const PerfHelper *test, PerfResultPtr result)
{
    if (m_extras.contains(test))
        m_extras[test].finalResult = std::move(result);
}

void TestListModel::setNote(const PerfHelper *test, const QString &note)
{
    if (m_extras.contains(test))
        m_extras[test].note = note;
}

QList<PerfHelperPtr> TestListModel::tickedTests() const
{
    QList<PerfHelperPtr> ticked;
    for (const PerfHelperPtr &test : m_tests) {
        if (test->isSelected && !test->isTestRunning)
            ticked.append(test);
    }
    return ticked;
}

QList<SavedTest> TestListModel::savedTests(const QList<PerfHelperPtr> &tests) const
{
    QList<SavedTest> saved;
    for (const PerfHelperPtr &test : tests)
        saved.append({test, m_extras.value(test.get())});
    return saved;
}

void TestListModel::removeTestAt(int row)
{
    if (row < 0 || row >= m_tests.size())
        return;
    beginRemoveRows(QModelIndex(), row, row);
    m_extras.remove(m_tests.at(row).get());
    m_tests.removeAt(row);
    endRemoveRows();
}

void TestListModel::reloadData()
{
    if (!m_tests.isEmpty())
        emit dataChanged(index(0, 0), index(int(m_tests.size()) - 1, columnCount() - 1));
}

int TestListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_tests.size());
}

int TestListModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(columnIdentifiers().size());
}

QVariant TestListModel::objectValue(const PerfHelper &test, const QString &identifier) const
{
    if (identifier == QLatin1String("checkbox"))
        return test.isTestRunning ? 1 : 0;
    if (identifier == QLatin1String("testLabel"))
        return test.testLabel;
    return QVariant();
}

QVariant TestListModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_tests.size() || index.column() >= columnCount())
        return QVariant();
    const PerfHelper &test = *m_tests.at(index.row());
    const QString identifier = columnIdentifier(index.column());
    switch (role) {
    case ObjectValueRole:
        return objectValue(test, identifier);
    case Qt::CheckStateRole:
        // The box shows a running test as ticked, and a finished one as the
        // user left it, so tests to compare can be ticked and unticked.
        if (identifier == QLatin1String("checkbox"))
            return test.isTestRunning || test.isSelected ? Qt::Checked : Qt::Unchecked;
        return QVariant();
    case Qt::DisplayRole:
    case Qt::EditRole:
        if (identifier == QLatin1String("testLabel"))
            return test.testLabel;
        return QVariant();
    case Qt::TextAlignmentRole:
        return QVariant::fromValue(Qt::Alignment(Qt::AlignCenter));
    case Qt::FontRole:
        if (identifier == QLatin1String("testLabel")) {
            QFont font;
            font.setPointSize(15);
            return font;
        }
        return QVariant();
    case Qt::ToolTipRole:
        if (identifier == QLatin1String("testStatus"))
            return tr("Delete this test");
        if (identifier == QLatin1String("testLabel") && test.isTestRunning)
            return tr("The test can be renamed once it is over.");
        return QVariant();
    default:
        return QVariant();
    }
}

QVariant TestListModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case 0:
        return QString();
    case 1:
        return tr("Test");
    case 2:
        return QString();
    default:
        return QVariant();
    }
}

Qt::ItemFlags TestListModel::flags(const QModelIndex &index) const
{
    if (!index.isValid() || index.row() >= m_tests.size())
        return Qt::NoItemFlags;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    const QString identifier = columnIdentifier(index.column());
    if (identifier == QLatin1String("checkbox"))
        flags |= Qt::ItemIsUserCheckable;
    else if (identifier == QLatin1String("testLabel") && !m_tests.at(index.row())->isTestRunning)
        flags |= Qt::ItemIsEditable;
    return flags;
}

bool TestListModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (!index.isValid() || index.row() >= m_tests.size())
        return false;
    const QString identifier = columnIdentifier(index.column());
    if (identifier == QLatin1String("testStatus"))
        return false;
    PerfHelper &test = *m_tests.at(index.row());
    if (test.isTestRunning) {
        m_alerts.showAlert(m_alertParent, kRunningEditRefusal);
        return false;
    }
    if (identifier == QLatin1String("checkbox")) {
        if (role == Qt::CheckStateRole)
            test.isSelected = value.toInt() == Qt::Checked ? 1 : 0;
        else
            test.isSelected = value.toLongLong();
        emit dataChanged(index, index);
        return true;
    }
    if (identifier == QLatin1String("testLabel")) {
        const QString text = value.toString();
        if (text != test.testLabel) {
            test.testLabel = text;
            emit dataChanged(index, index);
        }
        return true;
    }
    return false;
}
