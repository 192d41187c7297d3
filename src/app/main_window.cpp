#include "app/main_window.h"

#include "app/apps_table.h"
#include "app/apps_table_model.h"
#include "app/elided_text.h"
#include "app/phone_picker.h"
#include "app/spinner.h"
#include "app/view_factories.h"
#include "app/window_fitting.h"
#include "app/zarvo_app.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenuBar>
#include <QScrollArea>
#include <QShortcut>
#include <QTableView>
#include <QVBoxLayout>

#include <algorithm>
#include <array>
#include <tuple>

using namespace Qt::StringLiterals;

namespace {

constexpr QSize kWindowSize{1050, 760};
constexpr QSize kSmallestWindow{850, 600};
constexpr QMargins kContentMargins{20, 18, 20, 20};
constexpr int kContentSpacing = 9;
constexpr int kLogoSide = 54;
constexpr double kTitleSize = 25;
constexpr int kPickerWidth = 220;
constexpr int kWidestPicker = 300; // beside its buttons
constexpr int kStoreIDWidth = 200;
constexpr int kTableHeight = 220;
constexpr int kRowHeight = 24;
constexpr int kStatusLines = 3;
constexpr int kForeignLines = 2;                                    // of a text with a name in it
constexpr int kGrowth = kStatusLines - 1 + 3 * (kForeignLines - 1); // lines by which the texts may grow

struct ColumnSize
{
    int width;
    int least;
};
constexpr std::array<ColumnSize, AppsTableModel::ColumnCount> kColumns{{{370, 140}, {120, 80}, {400, 140}}};

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

void layOutColumns(QTableView *table)
{
    QHeaderView *header = table->horizontalHeader();
    header->setHighlightSections(false);
    header->setMinimumSectionSize(Scaled(kColumns[AppsTableModel::Version].least));
    for (int column = 0; column < AppsTableModel::ColumnCount; ++column)
        header->resizeSection(column, Scaled(kColumns[static_cast<size_t>(column)].width));
    // The toolkit knows one least width for all columns only, and would stretch the last one down to it.
    const auto fit = [table, header] {
        int left = table->viewport()->width();
        for (int column = 0; column < AppsTableModel::ColumnCount; ++column) {
            const int least = Scaled(kColumns[static_cast<size_t>(column)].least);
            const bool last = column == AppsTableModel::ColumnCount - 1;
            header->resizeSection(column, std::max(least, last ? left : header->sectionSize(column)));
            left -= header->sectionSize(column);
        }
    };
    QObject::connect(header, &QHeaderView::sectionResized, table, fit);
    QObject::connect(header, &QHeaderView::geometriesChanged, table, fit);
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

MainWindow::MainWindow()
{
    setObjectName(u"window"_s);
    setWindowTitle(u"Zarvo"_s);
    setMinimumSize(kSmallestWindow);
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    QMainWindow::closeEvent(event);
    Q_EMIT closed();
}

template <typename Action>
QPushButton *ZarvoApp::button(const QString &title, const char *name, Action action)
{
    QPushButton *made = ZarvoButton(title, this, action);
    made->setObjectName(QLatin1StringView(name));
    controls.append(made);
    return made;
}

QLineEdit *ZarvoApp::field(const QString &placeholder, const char *name)
{
    auto *made = new QLineEdit;
    made->setPlaceholderText(placeholder);
    made->setAccessibleName(placeholder);
    made->setAcceptDrops(false); // a file dropped here would leave its address as text
    made->setObjectName(QLatin1StringView(name));
    connect(made, &QLineEdit::textChanged, this, [this, made] { controlTextDidChange(made); });
    controls.append(made);
    return made;
}

void ZarvoApp::setFieldText(QLineEdit *field, const QString &text)
{
    const Muted muted(m_muted);
    field->setText(text);
}

void ZarvoApp::buildWindow()
{
    FollowPalette();
    window = std::make_unique<MainWindow>();
    connect(window.get(), &MainWindow::closed, qApp, &QCoreApplication::quit);
    connect(window.get(), &MainWindow::dropped, this, &ZarvoApp::setIPA);
    qApp->installEventFilter(new HeldEnter(window.get()));
    buildMenu(window->menuBar());

    const QMargins margins(Scaled(kContentMargins.left()), Scaled(kContentMargins.top()),
                           Scaled(kContentMargins.right()), Scaled(kContentMargins.bottom()));
    m_content = new FlippedView;
    auto *stack = new QVBoxLayout(m_content);
    stack->setContentsMargins(margins.left(), margins.top(), margins.right(), 0);
    stack->setSpacing(Scaled(kContentSpacing));
    buildContent(stack);

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
    window->setCentralWidget(central);
    addShortcuts();
    FitWindow(window.get(), kWindowSize, m_content, outcome,
              kGrowth * statusLabel->fontMetrics().lineSpacing());
    window->show();
    window->activateWindow();
    phonePicker->setFocus();
}

void ZarvoApp::buildMenu(QMenuBar *bar)
{
    const auto add = [](QMenu *menu, const QString &title, QKeySequence::StandardKey key) {
        QAction *action = menu->addAction(title);
        action->setShortcut(key);
        return action;
    };
    QMenu *application = bar->addMenu(u"Zarvo"_s);
    QAction *quit = add(application, u"Завершить Zarvo"_s, QKeySequence::Quit);
    quit->setShortcut(Qt::CTRL | Qt::Key_Q);
    quit->setShortcutContext(Qt::ApplicationShortcut); // also in the windows beside this one
    quit->setMenuRole(QAction::QuitRole);
    connect(quit, &QAction::triggered, qApp, &QCoreApplication::quit);

    QMenu *edit = bar->addMenu(u"Правка"_s);
    const std::tuple<QString, QKeySequence::StandardKey, EditCommand> commands[] = {
        {u"Вырезать"_s, QKeySequence::Cut, EditCommand::Cut},
        {u"Копировать"_s, QKeySequence::Copy, EditCommand::Copy},
        {u"Вставить"_s, QKeySequence::Paste, EditCommand::Paste},
        {u"Выбрать всё"_s, QKeySequence::SelectAll, EditCommand::SelectAll},
    };
    for (const auto &[title, key, command] : commands)
        connect(add(edit, title, key), &QAction::triggered, this,
                [command = command] { RunEditCommand(QApplication::focusWidget(), command); });
}

// The keys that everybody tries first; each does what its control does, and only while that is enabled.
void ZarvoApp::addShortcuts()
{
    const std::pair<const char *, QKeySequence::StandardKey> keys[] = {
        {"instructions", QKeySequence::HelpContents},
        {"refresh", QKeySequence::Refresh},
        {"chooseIPA", QKeySequence::Open},
    };
    for (const auto &[name, key] : keys) {
        auto *pressed = window->findChild<QPushButton *>(QLatin1StringView(name));
        pressed->setShortcut(key);
        pressed->setToolTip(pressed->shortcut().toString(QKeySequence::NativeText));
    }
    connect(new QShortcut(QKeySequence::Find, window.get()), &QShortcut::activated, this, [this] {
        if (!search->isEnabled())
            return;
        search->setFocus(Qt::ShortcutFocusReason);
        search->selectAll();
    });
    search->setToolTip(QKeySequence(QKeySequence::Find).toString(QKeySequence::NativeText));
}

void ZarvoApp::buildOutcome(QVBoxLayout *stack)
{
    statusLabel =
        named(ZarvoLabel(u"Подключите iPhone кабелем и выберите его в списке."_s, true, kStatusLines),
              "statusLabel");
    transferLabel = named(secondary(ZarvoLabel({}, false, kForeignLines)), "transferLabel");
    stack->addWidget(statusLabel);
    stack->addWidget(transferLabel);
    stack->addWidget(makeBottomRow());
}

void ZarvoApp::buildContent(QVBoxLayout *stack)
{
    ownerLabel =
        named(secondary(ZarvoLabel(u"Выберите приложение в таблице."_s, false, kForeignLines)), "ownerLabel");
    ipaLabel = named(ZarvoLabel(u"IPA не выбран"_s, false, kForeignLines), "ipaLabel");
    exactVersion = new QCheckBox(u"Запрашивать установленную версию по данным iPhone"_s);
    exactVersion->setObjectName(u"exactVersion"_s);
    exactVersion->setChecked(true);
    QWidget *deviceRow = makeDeviceRow();
    search = field(u"Поиск приложений"_s, "search");
    search->setClearButtonEnabled(true);

    stack->addWidget(makeHeader());
    stack->addWidget(secondary(
        ZarvoLabel(u"%1 • Прямое подключение к iPhone"_s.arg(QLatin1StringView(ZARVO_VERSION)), false)));
    stack->addWidget(secondary(ZarvoLabel(u"Приложения загружаются с серверов Apple через аккаунт владельца. "
                                          "Данные установленных приложений с iPhone не копируются."_s,
                                          false)));
    stack->addWidget(deviceRow);
    stack->addWidget(search);
    stack->addWidget(makeAppsTable());
    stack->addWidget(ZarvoLabel(u"Загрузка из App Store"_s, true));
    stack->addWidget(makeAccountRow());
    stack->addWidget(ownerLabel);
    stack->addWidget(makeDownloadRow());
    stack->addWidget(exactVersion, 0, Qt::AlignLeft);
    stack->addWidget(ZarvoLabel(u"Установка сохранённого IPA"_s, true));
    stack->addWidget(ipaLabel);
    stack->addWidget(makeInstallRow());
    controls.append(exactVersion);
}

QWidget *ZarvoApp::makeHeader()
{
    QLabel *title = ZarvoLabel(u"Zarvo"_s, true);
    SetFontSize(title, kTitleSize, true);
    return ZarvoRow({makeLogo(m_resourcePath + u"/AppLogo.png"_s), title});
}

QWidget *ZarvoApp::makeDeviceRow()
{
    phonePicker = new PhonePicker;
    phonePicker->setObjectName(u"phonePicker"_s);
    phonePicker->setAccessibleDescription(u"Выберите iPhone"_s);
    phonePicker->setMinimumWidth(Scaled(kPickerWidth));
    phonePicker->setMaximumWidth(Scaled(kWidestPicker));
    phonePicker->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    phonePicker->addItem(u"Выберите iPhone"_s);
    connect(phonePicker, &QComboBox::currentIndexChanged, this, &ZarvoApp::selectPhone);
    controls.append(phonePicker);
    infoButton = button(u"Сведения об iPhone"_s, "infoButton", &ZarvoApp::showInfo);
    return ZarvoRow({phonePicker, infoButton, button(u"Обновить"_s, "refresh", &ZarvoApp::refresh),
                     button(u"Устройства…"_s, "showHistory", &ZarvoApp::showHistory),
                     button(u"Обновить приложения"_s, "reloadApps", &ZarvoApp::reloadApps)});
}

QWidget *ZarvoApp::makeAppsTable()
{
    table = new AppsTable;
    table->setObjectName(u"table"_s);
    table->setAccessibleName(u"Приложения"_s);
    m_tableModel = new AppsTableModel(rows, table);
    table->setModel(m_tableModel);
    table->setMinimumHeight(Scaled(kTableHeight));
    table->setItemDelegate(new ElidingDelegate(table));
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setSelectionMode(QAbstractItemView::SingleSelection);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setAlternatingRowColors(true);
    table->setShowGrid(false);
    table->setWordWrap(false);
    table->setTabKeyNavigation(false); // Tab leaves the table, as in any list
    table->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    table->verticalHeader()->hide();
    table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    table->verticalHeader()->setDefaultSectionSize(Scaled(kRowHeight));
    layOutColumns(table);
    connect(table->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &ZarvoApp::tableViewSelectionDidChange);
    // Beside the table, not in it: to screen readers a table has cells and nothing else.
    m_phoneTrouble = named(secondary(ZarvoLabel({}, false, kStatusLines)), "phoneTrouble");
    m_phoneTrouble->setAlignment(Qt::AlignCenter);
    auto *note = new QVBoxLayout;
    note->setContentsMargins(Scaled(kContentMargins.left()), 0, Scaled(kContentMargins.right()), 0);
    note->addWidget(m_phoneTrouble);
    auto *place = new QWidget;
    auto *both = new QGridLayout(place);
    both->setContentsMargins({});
    both->addWidget(table, 0, 0);
    both->addLayout(note, 0, 0, Qt::AlignVCenter);
    updateTableNote();
    return place;
}

QWidget *ZarvoApp::makeAccountRow()
{
    accountLabel = named(ZarvoLabel(u"Вход ещё не проверен"_s, false, kForeignLines), "accountLabel");
    return ZarvoRow({accountLabel, button(u"Войти в Apple Account…"_s, "login", &ZarvoApp::login),
                     button(u"Проверить вход"_s, "checkAccount", &ZarvoApp::checkAccount)});
}

QWidget *ZarvoApp::makeDownloadRow()
{
    storeID = field(u"ID App Store (если известен)"_s, "storeID");
    storeID->setFixedWidth(std::max(Scaled(kStoreIDWidth), WidthOfPlaceholder(storeID)));
    downloadButton = button(u"Загрузить IPA…"_s, "downloadButton", &ZarvoApp::download);
    allButton = button(u"Загрузить все с iPhone…"_s, "allButton", &ZarvoApp::downloadAll);
    return ZarvoRow({storeID, downloadButton, allButton});
}

QWidget *ZarvoApp::makeInstallRow()
{
    installButton = button(u"Установить на iPhone…"_s, "installButton", &ZarvoApp::install);
    return ZarvoRow({installButton, button(u"Выбрать IPA…"_s, "chooseIPA", &ZarvoApp::chooseIPA),
                     button(u"Показать файл"_s, "reveal", &ZarvoApp::reveal)});
}

QWidget *ZarvoApp::makeBottomRow()
{
    spinner = new Spinner;
    spinner->setObjectName(u"spinner"_s);
    cancelButton = ZarvoButton(u"Отменить операцию"_s, this, &ZarvoApp::cancelJob);
    cancelButton->setObjectName(u"cancelButton"_s);
    return ZarvoRow(
        {spinner, cancelButton, button(u"Инструкция"_s, "instructions", &ZarvoApp::instructions)});
}
