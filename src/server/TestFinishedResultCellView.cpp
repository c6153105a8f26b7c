#include "server/TestFinishedResultCellView.h"

#include "records/NumberUtilites.h"
#include "server/ServerIntervalTableModel.h"
#include "ui_TestFinishedResultCellView.h"

#include <QHeaderView>

namespace {

// A missing text reads as the records always printed a missing value.
QString shown(const QString &text)
{
    return text.isNull() ? QStringLiteral("(null)") : text;
}

QString heading(const QString &ip)
{
    return QStringLiteral("From %1 To This Computer").arg(shown(ip));
}

QString typeLine(const QString &type)
{
    return QStringLiteral("Server is %1").arg(shown(type));
}

const QString kWholeTestMark = QStringLiteral("0.00");

} // namespace

TestFinishedResultCellView::TestFinishedResultCellView(QWidget *parent)
    : QWidget(parent)
    , m_ui(std::make_unique<Ui::TestFinishedResultCellView>())
    , m_intervals(new ServerIntervalTableModel(this))
{
    m_ui->setupUi(this);
    textField = m_ui->textField;
    intervalTextField = m_ui->intervalTextField;
    transferTextField = m_ui->transferTextField;
    bandwidthTextField = m_ui->bandwidthTextField;
    jitterTextField = m_ui->jitterTextField;
    lostTotalDatagramTextField = m_ui->lostTotalDatagramTextField;
    createdDateTextField = m_ui->createdDateTextField;
    typeName = m_ui->typeName;
    intervalResultsTable = m_ui->intervalResultsTable;
    // Addresses and type words come from the tool's output: text, never markup.
    for (QLabel *label : findChildren<QLabel *>())
        label->setTextFormat(Qt::PlainText);

    intervalResultsTable->setModel(m_intervals);
    QHeaderView *rows = intervalResultsTable->verticalHeader();
    rows->setMinimumSectionSize(kIntervalRowHeight);
    rows->setDefaultSectionSize(kIntervalRowHeight);
    rows->setSectionResizeMode(QHeaderView::Fixed);
    rows->hide();
    intervalResultsTable->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    intervalResultsTable->horizontalHeader()->setHighlightSections(false);
    intervalResultsTable->horizontalHeader()->setFixedHeight(14);
    // The row's own background (plain, alternate or selected) shows through.
    intervalResultsTable->viewport()->setAutoFillBackground(false);
    QFont small = intervalResultsTable->font();
    small.setPixelSize(9);
    intervalResultsTable->setFont(small);
}

TestFinishedResultCellView::~TestFinishedResultCellView() = default;

void TestFinishedResultCellView::updateUI()
{
    m_intervals->setTestResult(testResult);
    if (!testResult)
        return;

    const QString dash = QStringLiteral("-");
    if (testResult->finalResults.isEmpty()) {
        const PerfResultPtr last =
            testResult->intervalResults.isEmpty() ? nullptr : testResult->intervalResults.last();
        if (last) {
            textField->setText(heading(last->ip));
            typeName->setText(typeLine(last->typeName));
            createdDateTextField->setText(shown(last->currentDate));
        } else {
            textField->setText(QStringLiteral("From -"));
            createdDateTextField->setText(dash);
            typeName->setText(dash);
        }
        for (QLabel *field : {intervalTextField, transferTextField, bandwidthTextField, jitterTextField,
                              lostTotalDatagramTextField})
            field->setText(dash);
        return;
    }

    // Only the whole-test lines (their interval starts at 0.00) fill the
    // summary; a receiver line that carried nothing is passed over.
    for (const PerfResultPtr &record : std::as_const(testResult->finalResults)) {
        if (!record || !record->intervals.contains(kWholeTestMark))
            continue;
        if (record->receivedBytes == 0 && record->jitter.contains(kWholeTestMark))
            continue;
        textField->setText(heading(record->ip));
        intervalTextField->setText(shown(record->intervals));
        transferTextField->setText(NumberUtilites::byteFormat(record->receivedBytes));
        bandwidthTextField->setText(NumberUtilites::bitFormat(record->receivedBandwidth));
        createdDateTextField->setText(shown(record->currentDate));
        jitterTextField->setText(shown(record->jitter));
        lostTotalDatagramTextField->setText(shown(record->lostTotalDataGrams));
        typeName->setText(typeLine(record->typeName));
    }
}
