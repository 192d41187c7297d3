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
const QString kMaps = u"Карты-1.5.ipa"_s;

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
        QVERIFY(!m->find("downloadButton")->isEnabled()); // no app is chosen
        QVERIFY(m->chooseApp(u"Карты"_s));
        QCOMPARE(m->text("ownerLabel"),
                 u"Выбрано: Карты 1.5 • аккаунт исходной установки: first@example.com"_s);
        const QString message = u"IPA будет загружен с серверов Apple через аккаунт владельца."_s;
        QVERIFY(m->download([&](QFileDialog &chooser) {
            QCOMPARE(chooser.windowTitle(), message);
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
        QCOMPARE(newCalls(1), (QStringList{kGlobal + u"auth info"_s,
                                           kGlobal + u"download --output %1 --platform iphone --app-id 123 "
                                                     "--external-version-id 456"_s.arg(output)}));
    }

    void asksForTheRightFile_data()
    {
        // The app, what is typed, whether the version matters, what the first page of the purchases says;
        // what is asked, how many pages.
        const Rows<QString, QString, bool, QString, QString, int> row;
        const QString maps = u"Карты"_s;
        const QString notes = u"заметки"_s;
        const QString byBundle = u"--bundle-identifier com.example.notes"_s;
        const QString other = uR"({"apps":[{"bundleID":"x","id":1}]%1})"_s;
        row("any version", maps, u"123"_s, false, {}, u"--app-id 123"_s, 0);
        row("typed with blanks, version not known", notes, u" 777 "_s, true, {}, u"--app-id 777"_s, 0);
        row("nothing purchased", notes, {}, true, u"{\"apps\":[]}"_s, byBundle, 1);
        row("on the third page", notes, {}, true, other.arg(uR"(,"totalCount":1000)"), u"--app-id 777"_s, 3);
        row("never ending", notes, {}, true, other.arg(QString()), byBundle, 100);
    }

    void asksForTheRightFile()
    {
        const auto &[app, typed, exact, purchases, asked, pages] =
            Row<QString, QString, bool, QString, QString, int>();
        m->playStore([&, purchased = purchases, third = pages == 3](Scenario &tool) {
            if (third)
                tool.when({u"list-purchases", u"3"})
                    .prints(uR"({"apps":[{"bundleID":"com.example.notes","id":777}]})");
            tool.when({u"list-purchases"}).prints(purchased);
        });
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
        for (const char *button : {"downloadButton", "allButton"}) {
            QVERIFY(m->download([](QFileDialog &chooser) { chooser.reject(); }, {}, button));
            QCOMPARE(m->status(), before);
        }
        m->type("storeID", u"-5"_s);
        QVERIFY(m->download());
        QCOMPARE(m->status(), u"ID App Store должен быть положительным целым числом."_s);
        QVERIFY(!m->isBusy() && !m->alert());
        QCOMPARE(newCalls(known), QStringList());
    }

    void refusesToSave_data()
    {
        const Rows<QString, Preparation> row; // how the explanation starts, what happens after the choice
        row("the folder is gone", u"Не удалось создать рабочую папку в «"_s,
            [](Program &program) { QVERIFY(program.destination.remove()); });
        row("another version",
            u"Apple вернула другую версию. IPA не принят как точная копия установленной версии."_s,
            [](Program &program) {
                QVERIFY(writeIPA(program.mapsIPA.toStdString(), {.id = u"com.example.maps"_s}));
            });
        row("another file of that name", u"В выбранной папке уже есть другой файл с таким именем."_s,
            [](Program &program) {
                QVERIFY(QFile::copy(program.notesIPA, program.destination.filePath(kMaps)));
            });
    }

    void refusesToSave()
    {
        const auto &[sentence, prepare] = Row<QString, Preparation>();
        QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
        QStringList before;
        QVERIFY(m->download({}, [&, act = prepare] {
            act(*m);
            before = m->saved();
        }));
        EVENTUALLY(m->alert());
        QCOMPARE(m->alertTexts(), (QStringList{u"Операция не выполнена"_s, m->status()}));
        QCOMPARE(m->status().left(sentence.size()), sentence);
        QVERIFY(m->transfer().isEmpty() && !m->isBusy());
        QCOMPARE(m->saved(), before);
        QVERIFY(before.isEmpty() || ContentOf(m->destination.filePath(kMaps)) == ContentOf(m->notesIPA));
        QCOMPARE(m->text("ipaLabel"), u"IPA не выбран"_s);
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
        m->storeSays({u"auth"}, uR"({"error":"session of 79165550142 is over"})", 1);
        QVERIFY(m->perform("checkAccount"));
        QVERIFY(m->status().endsWith(u"session of [аккаунт скрыт] is over"_s));
    }

    void cancels_data()
    {
        const Rows<QString, QString> row; // a word of the call, the first word of the line that stays
        row("while purchases are listed", u"--page"_s, u"Поиск"_s);
        row("while the file comes", u"--output"_s, u"Получено"_s);
    }

    void cancels()
    {
        const auto &[word, transfer] = Row<QString, QString>();
        QVERIFY(m->startWithApps() && m->chooseApp(u"заметки"_s));
        m->playStore([&, call = word](Scenario &tool) { tool.when({call}).sleeps(kLong); });
        QVERIFY(m->download());
        EVENTUALLY_EQUAL(m->transfer().section(u' ', 0, 0), transfer);
        EVENTUALLY(newCalls().last().contains(word));
        QVERIFY(m->cancels(u"ipatool"_s));
        QCOMPARE(m->transfer().section(u' ', 0, 0), transfer);
        QCOMPARE(m->saved(), QStringList());
    }
};

QTEST_MAIN(WindowDownloadTest)
#include "tst_window_download.moc"
