// The built-in check of the two text rules on which the rest relies.
#pragma once

#include <QString>
#include <QStringView>

#include <functional>

/// The rules under test, replaceable so that the check itself can be checked.
struct SelfTestRules
{
    std::function<bool(QStringView)> latin;
    std::function<QString(const QString &, const QString &)> filename;
};

/// True when the password policy and the file naming behave as built; stops at the first check that fails.
bool SelfTestPasses(const SelfTestRules &rules);

/// The mode `--self-test`: one line on standard output and 0, or nothing and 2; also 2, with a sentence on
/// standard error, when the line could not be printed. Main thread.
int ZarvoSelfTest();
