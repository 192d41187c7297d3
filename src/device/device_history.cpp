#include "device/device_history.h"

#include "app/main_window.h"
#include "app/second_window.h"
#include "app/shown_text.h"
#include "app/view_factories.h"
#include "app/zarvo_app.h"
#include "device/device_discovery.h"
#include "device/installed_apps.h"

#include <QScrollArea>
#include <QVBoxLayout>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr QSize kHistorySize{640, 400};
constexpr int kSpacing = 16;
constexpr int kMargin = 20;

bool isText(const QVariant &value)
{
    return value.typeId() == QMetaType::QString;
}

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

QList<PhoneEntry> Remembered(const QList<PhoneEntry> &history, const PhoneEntry &phone)
{
    QList<PhoneEntry> entries = Forgotten(history, phone.id);
    entries.append({phone.id, phone.name.isEmpty() ? u"iPhone"_s : phone.name, phone.ios});
    SortByName(entries);
    return entries;
}

QList<PhoneEntry> Forgotten(QList<PhoneEntry> history, const QString &id)
{
    history.removeIf([&](const PhoneEntry &entry) { return entry.id == id; });
    return history;
}

QVariantList StoredHistory(const QList<PhoneEntry> &history)
{
    QVariantList stored;
    for (const PhoneEntry &entry : history)
        stored.append(QVariantMap{{u"id"_s, entry.id}, {u"name"_s, entry.name}, {u"ios"_s, entry.ios}});
    return stored;
}

QList<PhoneEntry> LoadedHistory(const QVariant &stored)
{
    QList<PhoneEntry> history;
    const QVariantList elements = stored.toList();
    for (const QVariant &element : elements) {
        if (element.typeId() != QMetaType::QVariantMap)
            continue;
        const QVariantMap entry = element.toMap();
        const QVariant id = entry.value(u"id"_s);
        const QVariant name = entry.value(u"name"_s);
        const QVariant ios = entry.value(u"ios"_s);
        if (isText(id) && !id.toString().isEmpty() && isText(name))
            history.append({id.toString(), name.toString(), isText(ios) ? ios.toString() : QString()});
    }
    return history;
}

QString HistoryLine(const PhoneEntry &entry, bool connected)
{
    return u"%1\niOS %2 • %3"_s.arg(ShownName(entry.name), ShownName(entry.ios),
                                    connected ? u"Подключён"_s : u"Не подключён"_s);
}

void ZarvoApp::loadHistory()
{
    savedPhones = LoadedHistory(HistoryWriter::load());
}

void ZarvoApp::persistHistory()
{
    m_historyWriter.store(StoredHistory(savedPhones), m_background);
}

void ZarvoApp::rememberDevice(const PhoneEntry &phone)
{
    savedPhones = Remembered(savedPhones, phone);
    persistHistory();
    refreshHistory();
}

void ZarvoApp::forgetDeviceID(const QString &id)
{
    if (busy)
        return;
    savedPhones = Forgotten(savedPhones, id);
    persistHistory();
    if (selectedPhone == id)
        clearDeviceSelection();
    refreshHistory();
}

void ZarvoApp::clearHistory()
{
    if (busy)
        return;
    savedPhones.clear();
    persistHistory();
    clearDeviceSelection();
    refreshHistory();
}

QStringList ZarvoApp::historyLines() const
{
    QStringList lines{busy ? u"busy"_s : u"idle"_s};
    for (const PhoneEntry &entry : savedPhones)
        lines << entry.id << HistoryLine(entry, HasPhone(phones, entry.id));
    return lines;
}

QWidget *ZarvoApp::makeHistoryRow(const PhoneEntry &entry)
{
    QPushButton *forget =
        ZarvoButton(u"Удалить из истории"_s, this, [this, id = entry.id] { forgetDeviceID(id); });
    forget->setObjectName(u"forgetDevice"_s);
    forget->setAccessibleDescription(ShownName(entry.name));
    forget->setEnabled(!busy);
    return ZarvoRow({ZarvoLabel(HistoryLine(entry, HasPhone(phones, entry.id)), false), forget});
}

void ZarvoApp::refreshHistory()
{
    if (!historyStack)
        return;
    const QStringList lines = historyLines();
    if (lines == m_historyShown)
        return;
    m_historyShown = lines;
    const int focused = FocusedButton(historyWindow);
    removeRows(historyStack);
    addRow(historyStack, ZarvoLabel(u"История хранится в Zarvo. Для работы с телефоном подключите его "
                                    "кабелем и выберите в главном окне."_s,
                                    false));
    if (savedPhones.isEmpty())
        addRow(historyStack, ZarvoLabel(u"История устройств пуста."_s, true));
    for (const PhoneEntry &entry : std::as_const(savedPhones))
        addRow(historyStack, makeHistoryRow(entry));
    QPushButton *clear = ZarvoButton(u"Очистить историю"_s, this, &ZarvoApp::clearHistory);
    clear->setObjectName(u"clearHistory"_s);
    clear->setEnabled(!busy && !savedPhones.isEmpty());
    addRow(historyStack, clear, Qt::AlignLeft);
    historyStack->addStretch(1);
    FocusButton(historyWindow, focused);
}

void ZarvoApp::showHistory()
{
    if (!historyWindow) {
        historyWindow = MakeSecondWindow(window.get(), u"Ранее подключённые устройства"_s, kHistorySize);
        historyWindow->setObjectName(u"historyWindow"_s);
        auto *content = new FlippedView;
        historyStack = new QVBoxLayout(content);
        const int margin = Scaled(kMargin);
        historyStack->setContentsMargins(margin, margin, margin, margin);
        historyStack->setSpacing(Scaled(kSpacing));
        auto *scroll = new QScrollArea;
        scroll->setFrameShape(QFrame::NoFrame);
        scroll->setWidgetResizable(true);
        scroll->setFocusPolicy(Qt::NoFocus);
        scroll->setWidget(content);
        auto *layout = new QVBoxLayout(historyWindow);
        layout->setContentsMargins({});
        layout->addWidget(scroll);
    }
    refreshHistory();
    PresentWindow(historyWindow);
}
