#pragma once

#include <QIcon>
#include <QObject>
#include <QString>

class ProgressWindow;

// Owns the one notice window of the application.
class ProgressWindowController : public QObject
{
    Q_OBJECT

public:
    // The shared controller, made (and its window loaded) on first use; it
    // lives until the application object goes away.
    static ProgressWindowController *sharedPrgoressWindowController();

    ~ProgressWindowController() override;

    void showWindowWithImage(const QIcon &image, const QString &message, double delay);
    ProgressWindow *window() const { return m_window; }

private:
    ProgressWindowController();

    ProgressWindow *m_window = nullptr;
};
