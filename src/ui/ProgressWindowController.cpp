#include "ui/ProgressWindowController.h"

#include "ui/ProgressWindow.h"

#include <QCoreApplication>

namespace {
ProgressWindowController *g_shared = nullptr;

void destroyShared()
{
    delete g_shared;
    g_shared = nullptr;
}
} // namespace

ProgressWindowController *ProgressWindowController::sharedPrgoressWindowController()
{
    if (!g_shared) {
        g_shared = new ProgressWindowController();
        // Widgets must go before the application object does.
        qAddPostRoutine(destroyShared);
    }
    return g_shared;
}

ProgressWindowController::ProgressWindowController()
    : m_window(new ProgressWindow())
{
}

ProgressWindowController::~ProgressWindowController()
{
    delete m_window;
}

void ProgressWindowController::showWindowWithImage(const QIcon &image, const QString &message, double delay)
{
    m_window->showWindowWithImage(image, message, delay);
}
