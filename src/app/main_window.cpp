#include "app/main_window.h"

#include "app/apps_table.h"
#include "app/main_menu.h"
#include "app/phone_picker.h"
#include "core/shown_text.h"
#include "views/spinner.h"
#include "views/view_factories.h"
#include "views/window_fitting.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QGridLayout>
#include <QLineEdit>
#include <QMenuBar>
#include <QScrollArea>
#include <QShortcut>
#include <QVBoxLayout>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr QSize kWindowSize{1050, 760};
constexpr QSize kSmallestWindow{850, 600};
constexpr QMargins kContentMargins{20, 18, 20, 20};
constexpr int kContentSpacing = 9;
constexpr int kLogoSide = 54;
constexpr double kTitleSize = 25;
constexpr int kStoreIDWidth = 200;
constexpr int kStatusLines = 3;
constexpr int kForeignLines = 2;                                    // of a text with a name in it
constexpr int kGrowth = kStatusLines - 1 + 3 * (kForeignLines - 1); // lines by which the texts may grow

QLabel *named(QLabel *label, const char *name)
{
    label->setObjectName(QLatin1StringView(name));
    return label;
}

QLabel *secondary(QLabel *label)
{
    MakeSecondary(label);
    return label;
}

QLabel *makeLogo(const QString &file)
{
    auto *logo = new QLabel;
    const int side = Scaled(kLogoSide);
    logo->setFixedSize(side, side);
    QPixmap picture(file);
    if (picture.isNull())
        picture = QApplication::windowIcon().pixmap(side, side, QIcon::Normal);
    if (picture.isNull())
        return logo;
    const qreal ratio = qApp->devicePixelRatio();
    const QSize pixels = (QSizeF(side, side) * ratio).toSize();
    picture = picture.scaled(pixels, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    picture.setDevicePixelRatio(ratio);
    logo->setPixmap(picture);
    return logo;
}

QWidget *makeHeader(const QString &logo)
{
    QLabel *title = ZarvoLabel(u"Zarvo"_s, true);
    SetFontSize(title, kTitleSize, true);
    return ZarvoRow({makeLogo(logo), title});
}

// An Enter that is held down presses once: its next press would answer what the first one has opened.
class HeldEnter : public QObject
{
public:
    using QObject::QObject;

    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() != QEvent::KeyPress)
            return false;
        const auto *key = static_cast<const QKeyEvent *>(event);
        return key->isAutoRepeat() && (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter);
    }
};

} // namespace

MainWindow::MainWindow(const QString &logo)
{
    setObjectName(u"window"_s);
    setWindowTitle(u"Zarvo"_s);
    setMinimumSize(kSmallestWindow);
    FollowPalette();
    qApp->installEventFilter(new HeldEnter(this));
    BuildMainMenu(menuBar());
    build(logo);
    addShortcuts();
}

void MainWindow::build(const QString &logo)
{
    const QMargins margins(Scaled(kContentMargins.left()), Scaled(kContentMargins.top()),
                           Scaled(kContentMargins.right()), Scaled(kContentMargins.bottom()));
    m_content = new FlippedView;
    auto *stack = new QVBoxLayout(m_content);
    stack->setContentsMargins(margins.left(), margins.top(), margins.right(), 0);
    stack->setSpacing(Scaled(kContentSpacing));
    buildContent(stack, logo);

    auto *scroll = new QScrollArea;
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setFocusPolicy(Qt::NoFocus);
    scroll->setWidget(m_content);

    // What the last action came to, and the way to cancel it, stay in sight where the rest has to scroll.
    auto *central = new QWidget;
    auto *whole = new QVBoxLayout(central);
    whole->setContentsMargins({});
    whole->setSpacing(0);
    whole->addWidget(scroll, 1);
    auto *outcome = new QVBoxLayout;
    outcome->setContentsMargins(margins.left(), Scaled(kContentSpacing), margins.right(), margins.bottom());
    outcome->setSpacing(Scaled(kContentSpacing));
    buildOutcome(outcome);
    whole->addLayout(outcome);
    setCentralWidget(central);
    FitWindow(this, kWindowSize, m_content, outcome, kGrowth * statusLabel->fontMetrics().lineSpacing());
}

void MainWindow::present()
{
    show();
    activateWindow();
    phonePicker->setFocus();
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    QMainWindow::closeEvent(event);
    Q_EMIT closed();
}

QPushButton *MainWindow::button(const QString &title, const char *name, Control control, Intent intent)
{
    QPushButton *made = ZarvoButton(title, this, intent);
    made->setObjectName(QLatin1StringView(name));
    controls.append({control, made});
    return made;
}

QLineEdit *MainWindow::field(const QString &placeholder, const char *name, Control control)
{
    auto *made = new QLineEdit;
    made->setPlaceholderText(placeholder);
    made->setAccessibleName(placeholder);
    made->setAcceptDrops(false); // a file dropped here would leave its address as text
    made->setObjectName(QLatin1StringView(name));
    controls.append({control, made});
    return made;
}

// The keys that everybody tries first; each does what its control does, and only while that is enabled.
void MainWindow::addShortcuts()
{
    const std::pair<Control, QKeySequence::StandardKey> keys[] = {
        {Control::Instructions, QKeySequence::HelpContents},
        {Control::Refresh, QKeySequence::Refresh},
        {Control::ChooseIPA, QKeySequence::Open},
    };
    for (const auto &[pressed, key] : keys) {
        auto *made = static_cast<QPushButton *>(control(pressed));
        made->setShortcut(key);
        made->setToolTip(made->shortcut().toString(QKeySequence::NativeText));
    }
    connect(new QShortcut(QKeySequence::Find, this), &QShortcut::activated, this, [this] {
        if (!search->isEnabled())
            return;
        search->setFocus(Qt::ShortcutFocusReason);
        search->selectAll();
    });
    search->setToolTip(QKeySequence(QKeySequence::Find).toString(QKeySequence::NativeText));
}

void MainWindow::buildContent(QVBoxLayout *stack, const QString &logo)
{
    ownerLabel =
        named(secondary(ZarvoLabel(u"Выберите приложение в таблице."_s, false, kForeignLines)), "ownerLabel");
    ipaLabel = named(ZarvoLabel(u"IPA не выбран"_s, false, kForeignLines), "ipaLabel");
    accountLabel = named(ZarvoLabel(u"Вход ещё не проверен"_s, false, kForeignLines), "accountLabel");

    stack->addWidget(makeHeader(logo));
    stack->addWidget(secondary(
        ZarvoLabel(u"%1 • Прямое подключение к iPhone"_s.arg(QLatin1StringView(ZARVO_VERSION)), false)));
    stack->addWidget(secondary(ZarvoLabel(u"Приложения загружаются с серверов Apple через аккаунт владельца. "
                                          "Данные установленных приложений с iPhone не копируются."_s,
                                          false)));
    stack->addWidget(makeDeviceRow());
    search = field(u"Поиск приложений"_s, "search", Control::Search);
    search->setClearButtonEnabled(true);
    connect(search, &QLineEdit::textChanged, this, &MainWindow::searchChanged);
    stack->addWidget(search);
    stack->addWidget(makeTablePlace());
    stack->addWidget(ZarvoLabel(u"Загрузка из App Store"_s, true));
    QPushButton *login =
        button(u"Войти в Apple Account…"_s, "login", Control::Login, &MainWindow::loginWanted);
    stack->addWidget(ZarvoRow({accountLabel, login,
                               button(u"Проверить вход"_s, "checkAccount", Control::CheckAccount,
                                      &MainWindow::accountCheckWanted)}));
    stack->addWidget(ownerLabel);
    stack->addWidget(makeDownloadRow());
    exactVersion = new QCheckBox(u"Запрашивать установленную версию по данным iPhone"_s);
    exactVersion->setObjectName(u"exactVersion"_s);
    exactVersion->setChecked(true);
    controls.append({Control::ExactVersion, exactVersion});
    stack->addWidget(exactVersion, 0, Qt::AlignLeft);
    stack->addWidget(ZarvoLabel(u"Установка сохранённого IPA"_s, true));
    stack->addWidget(ipaLabel);
    QPushButton *install =
        button(u"Установить на iPhone…"_s, "installButton", Control::Install, &MainWindow::installWanted);
    QPushButton *choose =
        button(u"Выбрать IPA…"_s, "chooseIPA", Control::ChooseIPA, &MainWindow::ipaChooserWanted);
    stack->addWidget(ZarvoRow(
        {install, choose, button(u"Показать файл"_s, "reveal", Control::Reveal, &MainWindow::revealWanted)}));
}

QWidget *MainWindow::makeDeviceRow()
{
    phonePicker = new PhonePicker;
    controls.append({Control::PhonePicker, phonePicker});
    connect(phonePicker, &QComboBox::activated, this,
            [this] { Q_EMIT phonePicked(phonePicker->currentData().toString()); });
    QPushButton *information =
        button(u"Сведения об iPhone"_s, "infoButton", Control::Information, &MainWindow::informationWanted);
    QPushButton *refresh = button(u"Обновить"_s, "refresh", Control::Refresh, &MainWindow::refreshWanted);
    QPushButton *history =
        button(u"Устройства…"_s, "showHistory", Control::History, &MainWindow::historyWanted);
    return ZarvoRow(
        {phonePicker, information, refresh, history,
         button(u"Обновить приложения"_s, "reloadApps", Control::ReloadApps, &MainWindow::appsWanted)});
}

QWidget *MainWindow::makeTablePlace()
{
    table = new AppsTable;
    controls.append({Control::Table, table});
    connect(table, &AppsTable::chosen, this, &MainWindow::appChosen);
    // Beside the table, not in it: to screen readers a table has cells and nothing else.
    m_tableNote = named(secondary(ZarvoLabel({}, false, kStatusLines)), "phoneTrouble");
    m_tableNote->setAlignment(Qt::AlignCenter);
    m_tableNote->hide();
    auto *note = new QVBoxLayout;
    note->setContentsMargins(Scaled(kContentMargins.left()), 0, Scaled(kContentMargins.right()), 0);
    note->addWidget(m_tableNote);
    auto *place = new QWidget;
    auto *both = new QGridLayout(place);
    both->setContentsMargins({});
    both->addWidget(table, 0, 0);
    both->addLayout(note, 0, 0, Qt::AlignVCenter);
    return place;
}

QWidget *MainWindow::makeDownloadRow()
{
    storeID = field(u"ID App Store (если известен)"_s, "storeID", Control::StoreID);
    storeID->setFixedWidth(std::max(Scaled(kStoreIDWidth), WidthOfPlaceholder(storeID)));
    QPushButton *download =
        button(u"Загрузить IPA…"_s, "downloadButton", Control::Download, &MainWindow::downloadWanted);
    return ZarvoRow(
        {storeID, download,
         button(u"Загрузить все с iPhone…"_s, "allButton", Control::DownloadAll, &MainWindow::batchWanted)});
}

void MainWindow::buildOutcome(QVBoxLayout *stack)
{
    statusLabel =
        named(ZarvoLabel(u"Подключите iPhone кабелем и выберите его в списке."_s, true, kStatusLines),
              "statusLabel");
    transferLabel = named(secondary(ZarvoLabel({}, false, kForeignLines)), "transferLabel");
    spinner = new Spinner;
    spinner->setObjectName(u"spinner"_s);
    QPushButton *cancel =
        button(u"Отменить операцию"_s, "cancelButton", Control::Cancel, &MainWindow::cancelWanted);
    QPushButton *help =
        button(u"Инструкция"_s, "instructions", Control::Instructions, &MainWindow::instructionsWanted);
    stack->addWidget(statusLabel);
    stack->addWidget(transferLabel);
    stack->addWidget(ZarvoRow({spinner, cancel, help}));
}

void MainWindow::showStatus(const QString &text)
{
    statusLabel->setText(ShownExplanation(text));
}

void MainWindow::showTransfer(const QString &text)
{
    transferLabel->setText(OneLine(text));
}

void MainWindow::showAccount(const QString &text)
{
    accountLabel->setText(OneLine(text));
}

void MainWindow::showOwner(const QString &text)
{
    ownerLabel->setText(OneLine(text));
}

void MainWindow::showIPA(const QString &name)
{
    ipaLabel->setText(ShownName(name));
}

void MainWindow::showTableNote(const QString &text)
{
    m_tableNote->setText(text);
    m_tableNote->setVisible(!text.isEmpty());
}

void MainWindow::showPhones(const QList<PhoneEntry> &phones)
{
    phonePicker->setPhones(phones);
}

void MainWindow::showPickedPhone(const QString &id)
{
    phonePicker->setCurrentIndex(id.isEmpty() ? 0 : std::max(0, phonePicker->findData(id)));
}

void MainWindow::showSearch(const QString &text)
{
    search->setText(text);
}

void MainWindow::showStoreID(const QString &text)
{
    storeID->setText(text);
}

void MainWindow::showChosenApp(int row)
{
    table->choose(row);
}

AppsTableModel *MainWindow::apps() const
{
    return table->apps();
}

QString MainWindow::searchText() const
{
    return search->text();
}

QString MainWindow::typedStoreID() const
{
    return storeID->text();
}

QString MainWindow::phoneTitle() const
{
    return phonePicker->currentText();
}

bool MainWindow::isExactVersionWanted() const
{
    return exactVersion->isChecked();
}

QWidget *MainWindow::control(Control control) const
{
    const auto found = std::find_if(controls.begin(), controls.end(),
                                    [control](const auto &entry) { return entry.first == control; });
    return found == controls.end() ? nullptr : found->second;
}

void MainWindow::showControls(const WindowState &state)
{
    const QWidget *focused = focusWidget();
    const bool losesFocus = std::any_of(controls.begin(), controls.end(), [&](const auto &entry) {
        return entry.second == focused && !IsEnabled(entry.first, state);
    });
    if (losesFocus || (!focused && state.busy))
        parkFocus();
    for (const auto &[control, view] : std::as_const(controls))
        view->setEnabled(IsEnabled(control, state));
    if (!state.busy)
        restoreFocus();
    setAcceptDrops(IsEnabled(Control::Drops, state));
    spinner->setAnimating(IsEnabled(Control::Spinner, state));
}

// A disabled control passes its focus on to the next enabled one, and a window without focus gives it to the
// first one when it is activated. While a job runs that is the cancel button: the next key typed into the
// search field would cancel the job. So the focus waits where keys do no more than scroll.
void MainWindow::parkFocus()
{
    QWidget *focused = focusWidget();
    if (focused != control(Control::Cancel))
        m_focusBeforeJob = focused;
    m_content->setFocus();
}

void MainWindow::restoreFocus()
{
    QWidget *next = std::exchange(m_focusBeforeJob, nullptr);
    if (!next || !next->isEnabled())
        next = phonePicker;
    if (focusWidget() == m_content)
        next->setFocus();
}
