#include "app/history_window.h"

#include "core/shown_text.h"
#include "device/device_discovery.h"
#include "device/device_history.h"
#include "views/second_window.h"
#include "views/view_factories.h"

#include <QScrollArea>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

constexpr QSize kHistorySize{640, 400};
constexpr int kSpacing = 16;
constexpr int kMargin = 20;

void removeRows(QLayout *stack)
{
    while (QLayoutItem *item = stack->takeAt(0)) {
        if (QWidget *row = item->widget()) {
            row->setParent(nullptr); // no longer among the window's views
            row->deleteLater();      // its button may be the one that asked for this
        }
        delete item;
    }
}

// A layout shows its new views only later; the focus needs them now.
void addRow(QVBoxLayout *stack, QWidget *row, Qt::Alignment alignment = {})
{
    stack->addWidget(row, 0, alignment);
    row->show();
}

} // namespace

HistoryWindow::HistoryWindow(QWidget *owner)
    : QObject(owner)
    , m_window(MakeSecondWindow(owner, u"Ранее подключённые устройства"_s, kHistorySize))
{
    m_window->setObjectName(u"historyWindow"_s);
    auto *content = new FlippedView;
    m_stack = new QVBoxLayout(content);
    const int margin = Scaled(kMargin);
    m_stack->setContentsMargins(margin, margin, margin, margin);
    m_stack->setSpacing(Scaled(kSpacing));
    auto *scroll = new QScrollArea;
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setFocusPolicy(Qt::NoFocus);
    scroll->setWidget(content);
    auto *layout = new QVBoxLayout(m_window);
    layout->setContentsMargins({});
    layout->addWidget(scroll);
}

QWidget *HistoryWindow::makeRow(const PhoneEntry &entry, bool connected, bool busy)
{
    QPushButton *forget =
        ZarvoButton(u"Удалить из истории"_s, this, [this, id = entry.id] { Q_EMIT forgetWanted(id); });
    forget->setObjectName(u"forgetDevice"_s);
    forget->setAccessibleDescription(ShownName(entry.name));
    forget->setEnabled(!busy);
    return ZarvoRow({ZarvoLabel(HistoryLine(entry, connected), false), forget});
}

void HistoryWindow::showEntries(const QList<PhoneEntry> &entries, const QList<PhoneEntry> &phones, bool busy)
{
    QStringList lines{busy ? u"busy"_s : u"idle"_s};
    for (const PhoneEntry &entry : entries)
        lines << entry.id << HistoryLine(entry, HasPhone(phones, entry.id));
    if (lines == m_shown)
        return;
    m_shown = lines;
    const int focused = FocusedButton(m_window);
    removeRows(m_stack);
    addRow(m_stack, ZarvoLabel(u"История хранится в Zarvo. Для работы с телефоном подключите его "
                               "кабелем и выберите в главном окне."_s,
                               false));
    if (entries.isEmpty())
        addRow(m_stack, ZarvoLabel(u"История устройств пуста."_s, true));
    for (const PhoneEntry &entry : entries)
        addRow(m_stack, makeRow(entry, HasPhone(phones, entry.id), busy));
    QPushButton *clear = ZarvoButton(u"Очистить историю"_s, this, &HistoryWindow::clearWanted);
    clear->setObjectName(u"clearHistory"_s);
    clear->setEnabled(!busy && !entries.isEmpty());
    addRow(m_stack, clear, Qt::AlignLeft);
    m_stack->addStretch(1);
    FocusButton(m_window, focused);
}

void HistoryWindow::present()
{
    PresentWindow(m_window);
}
