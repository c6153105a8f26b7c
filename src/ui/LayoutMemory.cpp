#include "ui/LayoutMemory.h"

#include "shell/SettingsStore.h"

#include <QHeaderView>
#include <QMainWindow>
#include <QScreen>
#include <QSplitter>
#include <QTabWidget>
#include <QTimer>
#include <QTableView>

namespace {

// A widget's place in the window by the names on the way to it, so a key
// stays the same from one start to the next.
QString keyOf(const char *kind, const QWidget *widget, const QWidget *window)
{
    QStringList names;
    for (const QWidget *step = widget; step && step != window; step = step->parentWidget())
        if (!step->objectName().isEmpty())
            names.prepend(step->objectName());
    return QStringLiteral("Layout/%1/%2").arg(QLatin1String(kind), names.join(QLatin1Char('.')));
}

QList<int> numbers(const QVariant &value)
{
    QList<int> out;
    for (const QString &text : value.toStringList())
        out << text.toInt();
    return out;
}

QStringList texts(const QList<int> &values)
{
    QStringList out;
    for (int value : values)
        out << QString::number(value);
    return out;
}

} // namespace

void LayoutMemory::restore(QMainWindow *window, SettingsStore &store)
{
    if (!window->restoreGeometry(store.objectForKey(QStringLiteral("Layout/window/geometry")).toByteArray())) {
        // First start: the designed size, on a smaller screen what it has.
        if (const QScreen *screen = window->screen())
            window->resize(window->size().boundedTo(screen->availableGeometry().size()));
    }
    window->restoreState(store.objectForKey(QStringLiteral("Layout/window/state")).toByteArray());
    // The rest once the window has its size: a splitter shares out what it has.
    QTimer::singleShot(0, window, [window, &store] {
        for (QSplitter *splitter : window->findChildren<QSplitter *>()) {
            const QList<int> sizes = numbers(store.objectForKey(keyOf("splitter", splitter, window)));
            if (sizes.size() == splitter->count())
                splitter->setSizes(sizes);
        }
        for (QTableView *table : window->findChildren<QTableView *>()) {
            const QList<int> widths = numbers(store.objectForKey(keyOf("columns", table, window)));
            QHeaderView *header = table->horizontalHeader();
            for (int column = 0; column < qMin(widths.size(), header->count()); ++column)
                if (widths[column] > 0)
                    header->resizeSection(column, widths[column]);
        }
        for (QTabWidget *tabs : window->findChildren<QTabWidget *>()) {
            const QVariant page = store.objectForKey(keyOf("tab", tabs, window));
            if (page.isValid() && page.toInt() < tabs->count())
                tabs->setCurrentIndex(page.toInt());
        }
    });
}

void LayoutMemory::save(const QMainWindow *window, SettingsStore &store)
{
    store.setObject(window->saveGeometry(), QStringLiteral("Layout/window/geometry"));
    store.setObject(window->saveState(), QStringLiteral("Layout/window/state"));
    for (const QSplitter *splitter : window->findChildren<QSplitter *>())
        store.setObject(texts(splitter->sizes()), keyOf("splitter", splitter, window));
    for (const QTableView *table : window->findChildren<QTableView *>()) {
        const QHeaderView *header = table->horizontalHeader();
        QList<int> widths;
        for (int column = 0; column < header->count(); ++column)
            widths << header->sectionSize(column); // 0 for a hidden column: left as it is on restore
        store.setObject(texts(widths), keyOf("columns", table, window));
    }
    for (const QTabWidget *tabs : window->findChildren<QTabWidget *>())
        store.setObject(tabs->currentIndex(), keyOf("tab", tabs, window));
    store.synchronize();
}
