// What every measurement needs: times, child processes measured from outside, and one table.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <vector>

class QWidget;

/// Seconds of the monotonic clock, which all processes share.
double now();
double median(std::vector<double> values);
double worst(const std::vector<double> &values);

/// How long each of `rounds` runs of `work` took, in seconds.
std::vector<double> timesOf(int rounds, const std::function<void()> &work);
/// The same in seconds of the processor, for work that waits for nothing: what else runs does not count.
std::vector<double> processorTimesOf(int rounds, const std::function<void()> &work);

/// A program run as barely as the system allows: started, waited for.
struct BareRun
{
    double seconds = 0;
    double processor = 0; ///< seconds of the processor, of the child and the children it waited for
    double megabytes = 0; ///< largest resident memory of the program itself
    int status = -1;
    QByteArray output;
};
BareRun runBare(const QStringList &command, bool keepOutput = false);

/// This process's largest resident memory so far, in MB (10^6 bytes).
double peakMegabytes();

/// Prints one row: what was measured, the value with its unit, the figure to meet (empty: for information),
/// and whether it is met. Remembers a miss.
void report(const QString &what, const QString &value, const QString &figure = {}, bool met = true);
/// True when every figure so far was met.
bool allMet();

/// An executable script for /bin/sh.
void writeScript(const QString &path, const QByteArray &body);
/// The program's window in this process; null when there is none.
QWidget *mainWindow();

void benchRunner(const QString &self);
void benchIPA(const QString &zarvo, const QString &folder);
void benchRedaction(const QString &folder);
void benchDevices(const QString &tool, const QString &virtualPhone, const QString &folder);
void benchWindow(const QString &self, const QString &folder);
void benchDisplay(const QString &zarvo, const QString &folder);
void benchBatch(const QString &parent);
void benchQuitting(const QString &parent);

/// Modes in which the program runs itself as a child.
int printTime();
int showWindowOnce(int argc, char **argv);
int publishOnly(const char *source, const char *destination);
void countRedaction(const char *shape, const char *size);
void countValidation(const char *file);
void countKeystroke(int argc, char **argv, int apps);
