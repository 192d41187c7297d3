#include "core/self_test.h"

#include "core/ipa_file_naming.h"
#include "core/password_policy.h"
#include "core/result_line.h"

using namespace Qt::StringLiterals;

bool SelfTestPasses(const SelfTestRules &rules)
{
    return rules.latin(u"Kpm274!?") && !rules.latin(u"Пароль") &&
           rules.filename(u"TimeTravel"_s, u"1.5"_s) == u"TimeTravel-1.5.ipa" &&
           rules.filename(u"Авито"_s, u"200.5"_s) == u"Авито-200.5.ipa";
}

int ZarvoSelfTest()
{
    if (!SelfTestPasses({ZarvoLatin, ZarvoFilename}))
        return 2;
    return PrintResult(u"Catalina native core: password policy and IPA names passed"_s) ? 0 : 2;
}
