// Signs in with a password and a code that exist nowhere else, and then looks for both everywhere.
#include "signin/memory_search.h"
#include "signin/secret_field.h"
#include "signin/sign_in_fixture.h"

#include <QDir>
#include <QFile>
#include <QScopeGuard>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr qsizetype kPasswordLength = 24;
constexpr qsizetype kCodeLength = 6;

// What this process prints goes to a file while the result lives, and then to where it was meant to go.
auto outputTo(const QString &path)
{
    std::fflush(nullptr);
    const std::pair before(::dup(STDOUT_FILENO), ::dup(STDERR_FILENO));
    const int file =
        ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO})
        ::dup2(file, stream);
    ::close(file);
    return qScopeGuard([path, before] {
        std::fflush(nullptr);
        ::dup2(before.first, STDOUT_FILENO);
        ::dup2(before.second, STDERR_FILENO);
        for (const int stream : {before.first, before.second})
            ::close(stream);
        QFile printed(path);
        if (printed.open(QIODevice::ReadOnly))
            std::fputs(printed.readAll().constData(), stdout);
    });
}

} // namespace

class SignInSecretsTest : public QObject
{
    Q_OBJECT

    void type(const char *field, const Canary &canary) const
    {
        auto *line = m->find<QLineEdit>(field);
        line->setFocus();
        for (qsizetype i = 0; i < canary.size(); ++i)
            QTest::sendKeyEvent(QTest::Click, line, Qt::Key_unknown, QString(canary.at(i)), Qt::NoModifier);
    }
    // In files and in the children's arguments and environments.
    qsizetype countOutside() const
    {
        qsizetype found = 0;
        for (const Canary &canary : {m_password, m_code}) {
            found += CountBelow(canary, QDir::tempPath()) + CountBelow(canary, m_home.path());
            for (const pid_t child : OwnChildren()) {
                for (const char *file : {"cmdline", "environ"})
                    found += CountInFile(canary, u"/proc/%1/%2"_s.arg(child).arg(QLatin1StringView(file)));
            }
        }
        return found;
    }

    std::unique_ptr<SignIn> m; // its folder, with the tool's log, lies outside of those that are searched
    QTemporaryDir m_home;
    Canary m_password = Canary::ofLetters(kPasswordLength);
    Canary m_code = Canary::ofDigits(kCodeLength);

private Q_SLOTS:
    void initTestCase();
    void searchFindsWhatIsThere();
    void nothingRemains_data();
    void nothingRemains();
};

void SignInSecretsTest::initTestCase()
{
    for (const char *variable : {"HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME"})
        qputenv(variable, QFile::encodeName(m_home.path()));
    while (CountInMemory(m_code) > 0) // six digits may stand anywhere
        m_code = Canary::ofDigits(kCodeLength);
}

// A search that finds nothing must be one that can find something.
void SignInSecretsTest::searchFindsWhatIsThere()
{
    QCOMPARE(CountInMemory(m_password), 0);
    SecretText secret;
    for (qsizetype i = 0; i < m_password.size(); ++i) {
        const QChar unit = m_password.at(i);
        secret.replace(i, 0, QStringView(&unit, 1));
    }
    QCOMPARE(CountInMemory(m_password), 1); // the places that it outgrew are wiped
    {
        const SecretBytes line = SecretLine(secret.view());
        QCOMPARE(CountInMemory(m_password), 2);
        QFile file(m_home.filePath(u"control"_s));
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        file.write(line.data(), static_cast<qint64>(line.size()));
    }
    QCOMPARE(CountBelow(m_password, m_home.path()), 1);
    QVERIFY(QFile::remove(m_home.filePath(u"control"_s)));
    secret.clear();
    QCOMPARE(CountInMemory(m_password), 0);
}

void SignInSecretsTest::nothingRemains_data()
{
    QTest::addColumn<QString>("ending");
    for (const char *ending : {"success", "failure", "cancelled", "timeout", "refused letter"})
        QTest::newRow(ending) << QString::fromLatin1(ending);
}

void SignInSecretsTest::nothingRemains()
{
    QFETCH(const QString, ending);
    m = std::make_unique<SignIn>();
    const TemporaryTmpdir temporary;
    {
        Scenario scenario = m->tools.add(u"ipatool"_s);
        UntilCode(scenario).asks(kCodePrompt);
        if (ending == "success"_L1)
            scenario.prints(kSuccess);
        else if (ending == "timeout"_L1)
            scenario.sleeps(60s);
        else
            scenario.prints(u"{\"error\":\"fresh 2FA\",\"success\":false}\n").exits(1);
    }
    const QString log = m->tools.toolPath(u"ipatool"_s) + u".log"_s;
    {
        const auto output = outputTo(temporary.path() + u"/output"_s);
        QVERIFY(m->open(kAccount));
        type("password", m_password);
        if (ending == "refused letter"_L1)
            QTest::sendKeyEvent(QTest::Click, m->find<QLineEdit>("password"), Qt::Key_unknown, u"п"_s, {});
        QCOMPARE(CountInMemory(m_password), 2); // the field's, and the last one that was accepted
        m->press("startButton");
        EVENTUALLY(m->find<QLineEdit>("code")->isVisible());
        type("code", m_code);
        QCOMPARE(CountInMemory(m_password), 1); // kept for a new request of the code
        QCOMPARE(CountInMemory(m_code), 1);
        QCOMPARE(countOutside(), 0);
        m->press(ending == "cancelled"_L1 ? "cancelButton" : "codeButton");
        if (ending == "timeout"_L1) {
            EVENTUALLY(CountInFile(m_code, log) > 0);
            m->now += 301s;
        }
        EVENTUALLY(!m->outcomes.isEmpty() || m->isEditing());
    }
    QCOMPARE(CountInMemory(m_password) + CountInMemory(m_code), 0);
    QCOMPARE(countOutside(), 0);
    QVERIFY(QFileInfo::exists(temporary.path() + u"/output"_s));
    // It was these that were typed and sent: the tool has written down what it read.
    EVENTUALLY(CountInFile(m_password, log) > 0);
    QCOMPARE(CountInFile(m_code, log) > 0, ending != "cancelled"_L1);
    m.reset();
    QCOMPARE(CountInMemory(m_password) + CountInMemory(m_code), 0);
}

QTEST_MAIN(SignInSecretsTest)
#include "tst_sign_in_secrets.moc"
