#pragma once

#include <QString>

#include <functional>

// What the server tab reaches outside the application: the blocking shell
// runner (for killall) and the wall clock. Empty members get the real ones;
// tests hand in their own so they neither kill other programs' tools nor
// wait out real seconds.
struct ServerTabEnvironment
{
    // Runs a command text through the shell and waits for it to end.
    std::function<void(const QString &command)> runShellCommandAndWait;
    // Now, in seconds since 1970.
    std::function<double()> secondsSince1970;
    // Milliseconds between the server's creation and its start (0.5 s).
    int startDelayMs = 500;
};
