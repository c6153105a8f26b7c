#pragma once

class QMainWindow;
class SettingsStore;

// The window as the person left it: the main window's geometry and state, the
// sizes of every splitter in it, the widths of every table's columns and the
// page of every tab widget, kept in the settings store under keys of their own
// ("Layout/…"). Which columns are shown is not kept: every start shows the
// usual set.
namespace LayoutMemory {
void restore(QMainWindow *window, SettingsStore &store);
void save(const QMainWindow *window, SettingsStore &store);
} // namespace LayoutMemory
