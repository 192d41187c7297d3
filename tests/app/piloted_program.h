// The windowed program in a process of its own, to be ended from outside.
#pragma once

#include <QProcess>

#include <algorithm>
#include <chrono>

/// How often a test repeats what it does: ZARVO_ROUNDS=1000 to measure, a sample in the usual run.
inline int Rounds(int sample)
{
    return std::max(sample, qEnvironmentVariableIntValue("ZARVO_ROUNDS"));
}

/// Starts the pilot with scripted tools, and learns how and how fast it ends. Its orphans come to the test's
/// process, so that none is overlooked. Test's main thread only.
class PilotedProgram
{
public:
    PilotedProgram() = default;
    PilotedProgram(const PilotedProgram &) = delete;
    PilotedProgram &operator=(const PilotedProgram &) = delete;

    bool start(const QString &resources, const QString &destination, const QString &action,
               const QString &archive = {});
    ~PilotedProgram();

    /// Waits for a line that it prints; false when it ended or did not print it in time, by default half a
    /// minute for a loaded machine under a sanitizer.
    bool waitForLine(const QByteArray &line, std::chrono::milliseconds patience = std::chrono::seconds(30));
    const QByteArray &printed() const { return m_printed; }
    void signal(int number) const;
    /// Sends a line to its standard input.
    void tell(const QByteArray &line) { m_process.write(line + '\n'); }

    struct End
    {
        int status = -1; ///< exit status, or minus the number of the signal
        std::chrono::milliseconds after{-1};
    };
    /// Waits for its end, counted from now; kills it after ten seconds.
    End waitForEnd();
    /// How many of its descendants are still alive after `grace`; they are killed.
    static int survivors(std::chrono::milliseconds grace);

private:
    QProcess m_process;
    QByteArray m_printed;
};
