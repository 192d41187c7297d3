#include "app/window_fixture.h"
#include "ipa_writer.h"
#include "support/rows.h"

#include <QDir>
#include <QFile>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

using Preparation = std::function<void(Program &)>;

namespace {

const QString kGlobal = u"--non-interactive --format json "_s;
constexpr auto kLong = 3ms * kPatience; // what ends earlier was ended
const QString kMaps = u"Карты-1.5.ipa"_s;

// What a phone's list of purchases tells: the first pages and the third one.
Rules purchases(const QString &more)
{
    return [more](Scenario &tool) {
        tool.when({u"list-purchases", u"3"})
            .prints(uR"({"apps":[{"bundleID":"com.example.notes","id":777}]})");
        tool.when({u"list-purchases"}).prints(uR"({"apps":[{"bundleID":"x","id":1}]%1})"_s.arg(more));
    };
}

} // namespace

class WindowDownloadTest : public ProgramTest
{
    Q_OBJECT

private:
    /// The calls of the store tool, `known` ones left out.
    QStringList newCalls(qsizetype known = 0) const
    {
        QStringList lines;
        for (const QStringList &call : m->storeCalls().sliced(known))
            lines.append(call.join(u' '));
        return lines;
    }

private Q_SLOTS:
    void savesTheChosenApp()
    {
        m->playStore([&](Scenario &tool) {
            tool.when({u"download"}).grows(2'500'000, 1ms).awaits(m->tools.filePath(u"go"_s));
            tool.copies(m->mapsIPA).prints(u"{\"success\":true}");
        });
        QVERIFY(m->startWithApps());
        for (const char *button : {"downloadButton", "installButton"}) // neither an app is chosen nor a file
            QVERIFY2(!m->find(button)->isEnabled(), button);
        m->type("search", u"КАР"_s);
        QCOMPARE(m->namesListed(), QStringList{u"Карты"_s});
        QVERIFY(m->chooseApp(u"Карты"_s));
        QCOMPARE(m->find<QLineEdit>("storeID")->text(), u"123"_s);
        QCOMPARE(m->text("ownerLabel"),
                 u"Выбрано: Карты 1.5 • аккаунт исходной установки: first@example.com"_s);

        const QString message = u"IPA будет загружен с серверов Apple через аккаунт владельца."_s;
        QVERIFY(m->download([&](QFileDialog &chooser) {
            QCOMPARE(chooser.windowTitle(), message);
            QCOMPARE(chooser.fileMode(), QFileDialog::Directory);
            const auto labels = chooser.findChildren<QLabel *>();
            QVERIFY(std::any_of(labels.begin(), labels.end(),
                                [&](const QLabel *label) { return label->text() == message; }));
        }));
        EVENTUALLY_EQUAL(m->status(), u"Загрузка: Карты"_s);
        EVENTUALLY_EQUAL(m->transfer().section(u'•', 0, 0).simplified(), u"Получено 2,5 МБ"_s);
        const QStringList working = PrivateFoldersIn(m->destination.path(), u".zarvo-");
        QCOMPARE(m->saved(), working);
        m->go();

        EVENTUALLY_EQUAL(m->status(), u"IPA сохранён: Карты-1.5.ipa"_s);
        EVENTUALLY(!m->isBusy());
        QCOMPARE(m->transfer(), m->destination.filePath(kMaps));
        QCOMPARE(m->text("ipaLabel"), kMaps);
        QCOMPARE(m->text("accountLabel"), u"Вход выполнен: owner@example.com"_s);
        QVERIFY(m->find("installButton")->isEnabled());
        QCOMPARE(m->saved(), QStringList{kMaps});
        QCOMPARE(ContentOf(m->destination.filePath(kMaps)), ContentOf(m->mapsIPA));
        const QString output = u"%1/%2/download.ipa"_s.arg(m->destination.path(), working.value(0));
        const QString info = kGlobal + u"auth info"_s;
        QCOMPARE(newCalls(), (QStringList{info, info,
                                          kGlobal + u"download --output %1 --platform iphone --app-id 123 "
                                                    "--external-version-id 456"_s.arg(output)}));
    }

    void asksForTheRightFile_data()
    {
        // The app, what is typed, whether the version matters, the purchases; what is asked, how many pages.
        const Rows<QString, QString, bool, Rules, QString, int> row;
        const QString maps = u"Карты"_s;
        const QString notes = u"заметки"_s;
        const QString byBundle = u"--bundle-identifier com.example.notes"_s;
        row("any version", maps, u"123"_s, false, {}, u"--app-id 123"_s, 0);
        row("typed with blanks, version not known", notes, u" 777 "_s, true, {}, u"--app-id 777"_s, 0);
        row("nothing purchased", notes, {}, true, {}, byBundle, 1);
        row("on the third page", notes, {}, true, purchases(uR"(,"totalCount":1000)"_s), u"--app-id 777"_s,
            3);
        const Rules endless = [](Scenario &tool) {
            tool.when({u"list-purchases"}).prints(uR"({"apps":[{"bundleID":"x","id":1}]})");
        };
        row("never ending", notes, {}, true, endless, byBundle, 100);
    }

    void asksForTheRightFile()
    {
        const auto &[app, typed, exact, rules, asked, pages] =
            Row<QString, QString, bool, Rules, QString, int>();
        m->playStore(rules);
        QVERIFY(m->startWithApps() && m->chooseApp(app));
        m->type("storeID", typed);
        m->find("exactVersion")->setChecked(exact);
        const qsizetype known = m->storeCalls().size();
        QVERIFY(m->download());
        QTRY_VERIFY_WITH_TIMEOUT(!m->isBusy(), 4 * kPatience);
        // The file's own version names it, not the installed one.
        const QString saved = app == u"Карты"_s ? kMaps : u"заметки-2.1.ipa"_s;
        QCOMPARE(m->status(), u"IPA сохранён: %1"_s.arg(saved));
        QCOMPARE(m->saved(), QStringList{saved});
        const QStringList calls = newCalls(known);
        QCOMPARE(calls.size(), pages + 2); // the account before, the download after
        for (int page = 1; page <= pages; ++page)
            QCOMPARE(calls[page],
                     kGlobal + u"list-purchases --page %1 --max-results 100 --platform iphone"_s.arg(page));
        QVERIFY2(calls.last().endsWith(u"--platform iphone "_s + asked), qPrintable(calls.last()));
    }

    void keepsTheIdentifierOfAPhoneThatGoes()
    {
        QVERIFY(m->startWithApps() && m->chooseApp(u"заметки"_s));
        m->type("storeID", u"777"_s);
        QVERIFY(m->download([&](QFileDialog &) {
            m->deviceSays({u"devices"}, u"{}");
            m->ask("refresh");
            EVENTUALLY_EQUAL(m->phonesListed().size(), 1);
        }));
        EVENTUALLY(!m->saved().isEmpty() && !m->isBusy());
        QVERIFY(newCalls().last().endsWith(u" --app-id 777"));
        QVERIFY(!m->find("installButton")->isEnabled()); // a file, but no phone
    }

    void doesNothingWithoutFolderOrIdentifier()
    {
        QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
        const qsizetype known = m->storeCalls().size();
        const QString before = m->status();
        QVERIFY(m->download([](QFileDialog &chooser) { chooser.reject(); }));
        QVERIFY(!m->isBusy());
        QCOMPARE(m->status(), before);
        for (const QString &typed : {u"0"_s, u"-5"_s, u"12a"_s}) {
            m->type("storeID", typed);
            QVERIFY(m->download());
            QCOMPARE(m->status(), u"ID App Store должен быть положительным целым числом."_s);
            QVERIFY(!m->isBusy() && !m->alert());
        }
        QCOMPARE(newCalls(known), QStringList());
    }

    void explainsFailures_data()
    {
        // How the explanation starts, what is prepared before the start and after the choice.
        const Rows<QString, Preparation, Preparation> row;
        const auto store = [](QStringView word, const QString &printed) -> Preparation {
            return [=](Program &program) { program.storeSays({word}, printed, 1); };
        };
        row("the folder is gone", u"Не удалось создать рабочую папку в «"_s, {},
            [](Program &program) { QVERIFY(program.destination.remove()); });
        row("the purchases cannot be read", u"Сервис ограничил частоту запросов. Повторите позже."_s,
            store(u"list-purchases", uR"({"error":"status 429"})"_s), {});
        row("the tool fails", u"Apple требует лицензию этого аккаунта."_s,
            store(u"download", uR"({"error":"license is required"})"_s), {});
        row("the tool saves nothing", u"IPA повреждён или не является ZIP-архивом."_s,
            [](Program &program) { program.storeSays({u"download"}, u"{\"success\":true}"); }, {});
        row("another version",
            u"Apple вернула другую версию. IPA не принят как точная копия установленной версии."_s,
            [](Program &program) {
                QVERIFY(writeIPA(program.mapsIPA.toStdString(),
                                 {.id = u"com.example.maps"_s, .version = u"1.6"_s}));
            },
            {});
        row("another file of that name", u"В выбранной папке уже есть другой файл с таким именем."_s,
            [](Program &program) {
                QFile file(program.destination.filePath(kMaps));
                QVERIFY(file.open(QIODevice::WriteOnly) && file.write("mine") == 4);
            },
            {});
    }

    void explainsFailures()
    {
        const auto &[sentence, prepare, afterChoosing] = Row<QString, Preparation, Preparation>();
        if (prepare)
            prepare(*m);
        const QStringList before = m->saved();
        QVERIFY(m->startWithApps() &&
                m->chooseApp(sentence.startsWith(u"Сервис") ? u"заметки"_s : u"Карты"_s));
        const Preparation &then = afterChoosing;
        QVERIFY(m->download({}, then ? std::bind(then, std::ref(*m)) : std::function<void()>()));
        EVENTUALLY(m->alert());
        QCOMPARE(m->alertTexts(), (QStringList{u"Операция не выполнена"_s, m->status()}));
        QCOMPARE(m->status().left(sentence.size()), sentence);
        QVERIFY(m->transfer().isEmpty() && !m->isBusy());
        QCOMPARE(m->saved(), before);
        QCOMPARE(ContentOf(m->destination.filePath(kMaps)),
                 before.isEmpty() ? QByteArray() : QByteArray("mine"));
        QCOMPARE(m->text("ipaLabel"), u"IPA не выбран"_s);
        QVERIFY(m->answerAlert(u"Понятно"_s));
    }

    // The tool names what no rule could recognise: an account that is a number and that only this job has
    // met, the phone, and a home folder of any kind.
    void explainsWithoutWhatItKnows()
    {
        m->playStore([](Scenario &tool) {
            tool.when({u"auth", u"info"}).times(1).prints(u"{}");
            tool.when({u"auth", u"info"}).prints(uR"({"email":"+79165550142","success":true})");
            tool.when({u"download"})
                .prints(uR"({"error":"no license of 8 (916) 555-01-42 for phone-1 in %1/x"})"_s.arg(
                    QDir::homePath()))
                .exits(1);
        });
        QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
        QVERIFY(m->download());
        EVENTUALLY(m->alert());
        QCOMPARE(m->status().section(u"Причина: "_s, 1),
                 u"no license of 8 [аккаунт скрыт] for [устройство скрыто] in /Users/[пользователь]/x"_s);
        QVERIFY(m->answerAlert(u"Понятно"_s));
        // What was met once in this run stays known.
        m->playStore([](Scenario &tool) {
            tool.when({u"auth", u"info"}).prints(uR"({"error":"session of 79165550142 is over"})").exits(1);
        });
        m->press("checkAccount");
        EVENTUALLY(m->alert());
        QCOMPARE(m->status().section(u"Причина: "_s, 1), u"session of [аккаунт скрыт] is over"_s);
    }

    // The report has room for the reason only.
    void saysAfterABatchWhatAilsTheTool()
    {
        m->playStore([](Scenario &tool) {
            tool.when({u"download"}).printsError(u"Error: unknown flag: --app-id").exits(1);
        });
        QVERIFY(m->startWithApps());
        QVERIFY(m->downloadAll());
        EVENTUALLY(m->alert());
        QVERIFY(m->status().startsWith(u"Сохранено: 0, ошибок: "_s));
        QVERIFY(m->alertTexts().join(u' ').contains(u"Эта версия ipatool не подходит"_s));
        QVERIFY(m->answerAlert(u"Понятно"_s));
    }

    void cancels_data()
    {
        const Rows<QString, QString> row; // a word of the call, the first word of the line that stays
        row("while the account is confirmed", u"info"_s, u""_s);
        row("while purchases are listed", u"--page"_s, u"Поиск"_s);
        row("while the file comes", u"--output"_s, u"Получено"_s);
    }

    void cancels()
    {
        const auto &[word, transfer] = Row<QString, QString>();
        const QString &call = word;
        QVERIFY(m->startWithApps() && m->chooseApp(u"заметки"_s));
        const qsizetype known = m->storeCalls().size();
        m->playStore([&](Scenario &tool) { tool.when({call}).sleeps(kLong); });
        QVERIFY(m->download());
        EVENTUALLY(newCalls(known).size() > 0 && newCalls(known).last().contains(call));
        EVENTUALLY(transfer.isEmpty() || !m->transfer().isEmpty());
        QVERIFY(m->cancels(u"ipatool"_s));
        QCOMPARE(m->transfer().section(u' ', 0, 0), transfer);
        QCOMPARE(m->saved(), QStringList());
    }
};

QTEST_MAIN(WindowDownloadTest)
#include "tst_window_download.moc"
