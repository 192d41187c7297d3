#include "app/shown_text.h"
#include "app/view_factories.h"
#include "app/window_fixture.h"

#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QHeaderView>
#include <QMainWindow>
#include <QMenuBar>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QTimer>

#include <algorithm>
#include <optional>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

/// What the widget reads: the text of a label or button, the placeholder of a field.
QString reading(const QWidget *widget)
{
    if (const auto *label = qobject_cast<const QLabel *>(widget))
        return label->text();
    if (const auto *button = qobject_cast<const QAbstractButton *>(widget))
        return button->text();
    if (const auto *field = qobject_cast<const QLineEdit *>(widget))
        return field->placeholderText();
    return {};
}

QString accessibleName(QObject *object)
{
    return QAccessible::queryAccessibleInterface(object)->text(QAccessible::Name);
}

/// The visible interfaces of this role, in all depths.
QList<QAccessibleInterface *> accessibles(QAccessibleInterface *root, QAccessible::Role role)
{
    QList<QAccessibleInterface *> found;
    if (!root || !root->isValid() || root->state().invisible)
        return found;
    if (root->role() == role)
        found.append(root);
    for (int i = 0;
         role != QAccessible::Table && root->role() == QAccessible::Table ? false : i < root->childCount();
         ++i)
        found += accessibles(root->child(i), role);
    return found;
}

} // namespace

class WindowTest : public QObject
{
    Q_OBJECT

public:
    static void initMain() { Program::isolate(); }

private Q_SLOTS:
    void init() { m.emplace(); }
    void cleanup() { m.reset(); }

    void readsAsAgreed();
    void tabsInReadingOrder();
    void keepsItsSize();
    void keepsColumnsWide();
    void showsALogo_data();
    void showsALogo();
    void showsForeignTexts_data();
    void showsForeignTexts();
    void breaksLongWords();
    void boundsAlerts();
    void editsWhatHasTheFocus();
    void quits_data();
    void quits();
    void isAccessible();
    void announcesAlerts();

private:
    /// The content's widgets that are visible and read something or take the focus, from the top left.
    QWidgetList inReadingOrder() const;

    std::optional<Program> m;
};

QWidgetList WindowTest::inReadingOrder() const
{
    QWidget *content = qobject_cast<QMainWindow *>(m->window())->centralWidget();
    const QWidget *scrolling = m->window()->findChild<FlippedView *>();
    QWidgetList widgets;
    const auto all = content->findChildren<QWidget *>();
    for (QWidget *widget : all) {
        const bool own = qobject_cast<QTableView *>(widget) || qobject_cast<QComboBox *>(widget) ||
                         (!reading(widget).isEmpty() && !qobject_cast<QAbstractItemView *>(widget->parent()));
        if (own && widget->isVisible())
            widgets.append(widget);
    }
    const auto place = [content, scrolling](const QWidget *widget) {
        const QPoint center = widget->mapTo(content, widget->rect().center());
        // Those of one row differ by a pixel.
        return std::tuple(!scrolling->isAncestorOf(widget), center.y() / 4, center.x());
    };
    std::sort(widgets.begin(), widgets.end(), [&](auto *a, auto *b) { return place(a) < place(b); });
    return widgets;
}

void WindowTest::readsAsAgreed()
{
    m->playStore([&](Scenario &tool) { tool.when({u"auth"}).awaits(m->tools.filePath(u"go"_s)); });
    QVERIFY(m->start());
    QCOMPARE(m->window()->windowTitle(), u"Zarvo"_s);
    QStringList texts;
    const auto widgets = inReadingOrder();
    for (const QWidget *widget : widgets)
        texts.append(reading(widget));
    const QStringList expected{
        u"Zarvo"_s,
        texts.value(1).section(u' ', 0, 0) + u" • Прямое подключение к iPhone"_s,
        u"Приложения загружаются с серверов Apple через аккаунт владельца. Данные установленных приложений с "
        u"iPhone не "
        "копируются."_s,
        u""_s,
        u"Сведения об iPhone"_s,
        u"Обновить"_s,
        u"Устройства…"_s,
        u"Обновить приложения"_s,
        u"Поиск приложений"_s,
        u""_s,
        u"Загрузка из App Store"_s,
        u"Вход ещё не проверен"_s,
        u"Войти в Apple Account…"_s,
        u"Проверить вход"_s,
        u"Выберите приложение в таблице."_s,
        u"ID App Store (если известен)"_s,
        u"Загрузить IPA…"_s,
        u"Загрузить все с iPhone…"_s,
        u"Запрашивать установленную версию по данным iPhone"_s,
        u"Установка сохранённого IPA"_s,
        u"IPA не выбран"_s,
        u"Установить на iPhone…"_s,
        u"Выбрать IPA…"_s,
        u"Показать файл"_s,
        u"Проверка входа…"_s,
        u"Отменить операцию"_s,
        u"Инструкция"_s,
    };
    QCOMPARE(texts, expected);
    QVERIFY(texts[1].at(0).isDigit());
    QCOMPARE(m->phonesListed(), QStringList{u"Выберите iPhone"_s});
    QVERIFY(m->find("exactVersion")->isChecked());

    QStringList menus;
    const auto actions = m->window()->findChild<QMenuBar *>()->findChildren<QAction *>();
    for (const QAction *action : actions)
        menus.append(u"%1 %2"_s.arg(action->text(), action->shortcut().toString()).trimmed());
    menus.removeAll(QString());
    menus.sort();
    QCOMPARE(menus,
             (QStringList{u"Zarvo"_s, u"Вставить Ctrl+V"_s, u"Выбрать всё Ctrl+A"_s, u"Вырезать Ctrl+X"_s,
                          u"Завершить Zarvo Ctrl+Q"_s, u"Копировать Ctrl+C"_s, u"Правка"_s}));
}

void WindowTest::tabsInReadingOrder()
{
    QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
    QVERIFY(m->download());
    EVENTUALLY(!m->isBusy());
    QWidgetList expected = inReadingOrder();
    expected.removeIf([](const QWidget *widget) {
        return qobject_cast<const QLabel *>(widget) || widget->objectName() == "cancelButton"_L1;
    });
    QCOMPARE(expected.size(), 17);
    expected.first()->setFocus();
    QWidgetList visited;
    for (qsizetype i = 0; i < expected.size(); ++i) {
        visited.append(QApplication::focusWidget());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    }
    QCOMPARE(visited, expected);
    QCOMPARE(QApplication::focusWidget(), expected.first());
}

void WindowTest::keepsItsSize()
{
    QVERIFY(m->startWithPhone());
    m->window()->resize(100, 100);
    EVENTUALLY_EQUAL(m->window()->size(), QSize(850, 600));
    auto *scroll = m->window()->findChild<QScrollArea *>();
    EVENTUALLY(scroll->verticalScrollBar()->maximum() > 0);
    QCOMPARE(scroll->horizontalScrollBar()->maximum(), 0);
    // What the last action came to is in sight all the same.
    for (const char *name : {"statusLabel", "transferLabel", "cancelButton"}) {
        const auto *view = m->find<QWidget>(name);
        const QRect place(view->mapTo(m->window(), QPoint()), view->size());
        QVERIFY2(m->window()->rect().contains(place), name);
    }
}

void WindowTest::keepsColumnsWide()
{
    QVERIFY(m->startWithPhone());
    const auto *table = m->find<QTableView>("table");
    QHeaderView *header = table->horizontalHeader();
    const QStringList titles{u"Приложение"_s, u"Версия"_s, u"Идентификатор"_s};
    const int widths[] = {370, 120, 400};
    const int least[] = {140, 80, 140};
    for (int column = 0; column < 3; ++column) {
        QCOMPARE(table->model()->headerData(column, Qt::Horizontal).toString(), titles[column]);
        QVERIFY(column == 2 || header->sectionSize(column) == Scaled(widths[column]));
        header->resizeSection(column, 10);
        QVERIFY(header->sectionSize(column) >= Scaled(least[column]));
    }
    header->resizeSection(0, 2000);
    QCOMPARE(header->sectionSize(2), Scaled(least[2])); // as narrow as it may be
    header->resizeSection(0, Scaled(widths[0]));
    QCOMPARE(header->length(), table->viewport()->width()); // the last one takes what is left
}

void WindowTest::showsALogo_data()
{
    QTest::addColumn<bool>("hasFile");
    QTest::addColumn<QColor>("color");
    QTest::newRow("of the resources") << true << QColor(Qt::blue);
    QTest::newRow("the application's icon without one") << false << QColor(Qt::red);
}

void WindowTest::showsALogo()
{
    QFETCH(const bool, hasFile);
    QPixmap picture(64, 64);
    picture.fill(Qt::red);
    QApplication::setWindowIcon(picture);
    picture.fill(Qt::blue);
    QVERIFY(!hasFile || picture.save(m->tools.filePath(u"AppLogo.png"_s)));
    QVERIFY(m->start());
    const auto labels = m->window()->findChildren<QLabel *>();
    const auto logo =
        std::find_if(labels.begin(), labels.end(), [](QLabel *label) { return !label->pixmap().isNull(); });
    QVERIFY(logo != labels.end());
    QCOMPARE((*logo)->size(), QSize(Scaled(54), Scaled(54)));
    QTEST((*logo)->pixmap().toImage().pixelColor(20, 20), "color");
}

void WindowTest::showsForeignTexts_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("shown");
    QTest::newRow("lines become one") << u"a\r\nb\u2028c\n"_s << u"a b c "_s;
    QTest::newRow("control characters become blanks") << u"a\tb\x1b[1mc\x9b"_s << u"a b [1mc "_s;
    QTest::newRow("two paragraphs stay") << u"a\n\nb\n\nc"_s << u"a\n\nb c"_s;
    QTest::newRow("endless is cut") << QString(100'000, u'x') << QString(2000, u'x') + u'…';
}

void WindowTest::showsForeignTexts()
{
    QFETCH(const QString, text);
    QTEST(ShownExplanation(text), "shown");
}

void WindowTest::breaksLongWords()
{
    const std::unique_ptr<QLabel> label(ZarvoLabel(QString(100, u'W'), false));
    const int lines = label->fontMetrics().horizontalAdvance(label->text()) / 200;
    const int line = label->fontMetrics().height();
    QVERIFY(lines > 2 && label->heightForWidth(200) >= lines * line);
    label->resize(200, label->heightForWidth(200));
    label->show();
    const auto isInked = [&] { // where the last full line is
        const QImage picture = label->grab(QRect(0, (lines - 1) * line, 200, line)).toImage();
        return picture != QPixmap::fromImage(picture).copy(0, 0, 1, 1).scaled(picture.size()).toImage();
    };
    EVENTUALLY(isInked());
}

void WindowTest::boundsAlerts()
{
    const QString text = u"слово "_s.repeated(2000);
    const std::unique_ptr<QDialog> alert(MakeAlert(nullptr, u"Сообщение"_s, text, {{u"Понятно"_s, {}}}));
    alert->show();
    QVERIFY(alert->height() < 600);
    const auto *scroll = alert->findChild<QScrollArea *>();
    QVERIFY(scroll && scroll->verticalScrollBar()->maximum() > 0);
    QCOMPARE(scroll->findChild<QLabel *>()->text(), text);
}

void WindowTest::editsWhatHasTheFocus()
{
    QVERIFY(m->startWithPhone());
    const auto trigger = [&](const QString &title) {
        const auto actions = m->window()->findChildren<QAction *>();
        for (QAction *action : actions) {
            if (action->text() == title)
                action->trigger();
        }
    };
    auto *search = m->find<QLineEdit>("search");
    auto *storeID = m->find<QLineEdit>("storeID");
    m->type("search", u"карты"_s);
    trigger(u"Выбрать всё"_s);
    QCOMPARE(search->selectedText(), u"карты"_s);
    trigger(u"Вырезать"_s);
    QCOMPARE(search->text(), QString());
    storeID->setFocus();
    trigger(u"Вставить"_s);
    QCOMPARE(storeID->text(), u"карты"_s);
    QTest::keyClicks(storeID, u"!"_s);
    QTest::keyClick(storeID, Qt::Key_A, Qt::ControlModifier);
    trigger(u"Копировать"_s);
    QCOMPARE(QApplication::clipboard()->text(), u"карты!"_s);
}

void WindowTest::quits_data()
{
    using Way = std::function<void(QWidget *)>;
    QTest::addColumn<Way>("way");
    QTest::newRow("with a key") << Way(
        [](QWidget *window) { QTest::keyClick(window->windowHandle(), Qt::Key_Q, Qt::ControlModifier); });
    QTest::newRow("by closing the window") << Way([](QWidget *window) { window->close(); });
}

void WindowTest::quits()
{
    QFETCH(const std::function<void(QWidget *)>, way);
    QVERIFY(m->startWithPhone());
    bool inTime = true;
    QTimer::singleShot(0, this, [&] { way(m->window()); });
    QTimer::singleShot(kPatience, this, [&] {
        inTime = false;
        QApplication::exit(1);
    });
    QCOMPARE(QApplication::exec(), 0);
    QVERIFY(inTime);
}

void WindowTest::isAccessible()
{
    QVERIFY(m->startWithApps() && m->chooseApp(u"Tom & <b>Jerry</b>"_s));
    QCOMPARE(accessibleName(m->find<QLabel>("ownerLabel")), u"Выбрано: Tom & <b>Jerry</b> 1"_s);
    const auto widgets = inReadingOrder();
    for (QWidget *widget : widgets) {
        if (!reading(widget).isEmpty())
            QCOMPARE(accessibleName(widget), reading(widget));
    }
    QAccessibleInterface *window = QAccessible::queryAccessibleInterface(m->window());
    const auto count = [&](QAccessible::Role role) { return accessibles(window, role).size(); };
    QCOMPARE(count(QAccessible::ComboBox), 1);
    QCOMPARE(count(QAccessible::EditableText), 2);
    QCOMPARE(count(QAccessible::CheckBox), 1);
    QCOMPARE(count(QAccessible::Button), 13);
    QCOMPARE(count(QAccessible::Table), 1);
    QAccessibleTableInterface *table = accessibles(window, QAccessible::Table).first()->tableInterface();
    QCOMPARE(table->columnCount(), 3);
    QCOMPARE(table->rowCount(), 3);
    QCOMPARE(table->cellAt(0, 0)->text(QAccessible::Name), u"Tom & <b>Jerry</b>"_s);
    QCOMPARE(table->columnDescription(0), u"Приложение"_s);
}

void WindowTest::announcesAlerts()
{
    QVERIFY(m->startWithPhone());
    m->playStore([](Scenario &tool) { tool.when({u"auth"}).prints(uR"({"error":"a & <b>b</b>"})"); });
    m->press("checkAccount");
    EVENTUALLY(m->alert());
    QAccessibleInterface *application = QAccessible::queryAccessibleInterface(qApp);
    QAccessibleInterface *alert = QAccessible::queryAccessibleInterface(m->alert());
    QVERIFY(application->indexOfChild(alert) >= 0);
    QStringList names;
    for (const QAccessible::Role role : {QAccessible::StaticText, QAccessible::Button}) {
        const auto parts = accessibles(alert, role);
        for (QAccessibleInterface *part : parts)
            names.append(part->text(QAccessible::Name));
    }
    QCOMPARE(names,
             (QStringList{u"Операция не выполнена"_s, m->status(), u"Понятно"_s, u"Скопировать ошибку"_s}));
    QVERIFY(m->status().endsWith(u"a & <b>b</b>"_s));
}

QTEST_MAIN(WindowTest)
#include "tst_window.moc"
