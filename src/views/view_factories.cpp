#include "views/view_factories.h"

#include "views/row_layout.h"
#include "views/wrapping_label.h"

#include <QApplication>
#include <QEvent>
#include <QFontInfo>
#include <QHBoxLayout>
#include <QScrollArea>
#include <QScrollBar>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

constexpr double kReferenceFont = 13;     // the font size, in pixels, for which sizes are given
constexpr float kSecondaryOpacity = 0.6F; // 4.5 : 1 and more against the ground, light or dark
constexpr int kRowSpacing = 8;
constexpr int kAlertWidth = 460;
constexpr int kAlertTextHeight = 300;
constexpr int kAlertMargin = 20;
constexpr int kAlertSpacing = 12;

// What is too high for an alert scrolls.
QWidget *makeAlertText(const QString &text, bool bold)
{
    QLabel *label = ZarvoLabel(text, bold);
    const int width = Scaled(kAlertWidth);
    const int most = Scaled(kAlertTextHeight);
    label->setFixedWidth(width);
    if (label->heightForWidth(width) <= most)
        return label;
    auto *scroll = new QScrollArea;
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setWidgetResizable(true);
    scroll->setFixedSize(width + scroll->verticalScrollBar()->sizeHint().width(), most);
    scroll->setWidget(label);
    return scroll;
}

// Some desktops' themes leave the toned-down colour at its default, which is black also on a dark ground. It
// is derived from the text's colour here, again after each change of the palette.
class PaletteFollower : public QObject
{
public:
    explicit PaletteFollower(QObject *parent)
        : QObject(parent)
    {
        qApp->installEventFilter(this);
    }

    void adjust()
    {
        const QPalette whole = QApplication::palette();
        QPalette palette;
        bool isFollowing = true;
        for (const auto group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
            QColor color = whole.color(group, QPalette::WindowText);
            color.setAlphaF(color.alphaF() * kSecondaryOpacity);
            palette.setColor(group, QPalette::PlaceholderText, color);
            isFollowing &= whole.color(group, QPalette::PlaceholderText) == color;
        }
        if (!isFollowing)
            QApplication::setPalette(palette);
    }

    bool eventFilter(QObject *object, QEvent *event) override
    {
        if (object == qApp && event->type() == QEvent::ApplicationPaletteChange)
            adjust();
        return false;
    }
};

} // namespace

int Scaled(int pixels)
{
    const double factor = QFontInfo(QApplication::font()).pixelSize() / kReferenceFont;
    return static_cast<int>(std::lround(pixels * std::max(1.0, factor)));
}

QLabel *ZarvoLabel(const QString &text, bool bold, int mostLines)
{
    auto *label = new WrappingLabel(text, mostLines);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    label->setMinimumWidth(1);
    QFont font = label->font();
    font.setBold(bold);
    label->setFont(font);
    return label;
}

void MakeSecondary(QLabel *label)
{
    label->setForegroundRole(QPalette::PlaceholderText);
}

void FollowPalette()
{
    static auto *const follower = new PaletteFollower(qApp);
    follower->adjust();
}

QFont FontOfSize(double points)
{
    QFont font = QApplication::font();
    const double factor = points / kReferenceFont;
    if (font.pointSizeF() > 0)
        font.setPointSizeF(font.pointSizeF() * factor);
    else
        font.setPixelSize(static_cast<int>(std::lround(font.pixelSize() * factor)));
    return font;
}

void SetFontSize(QLabel *label, double points, bool bold)
{
    QFont font = FontOfSize(points);
    font.setBold(bold);
    label->setFont(font);
}

QPushButton *MakePushButton(const QString &title)
{
    auto *button = new QPushButton(title);
    button->setAutoDefault(true); // Enter presses the one that has the focus, also where there is no dialog
    return button;
}

QWidget *ZarvoRow(std::initializer_list<QWidget *> views)
{
    auto *row = new QWidget;
    auto *layout = new RowLayout(row, Scaled(kRowSpacing));
    for (QWidget *view : views)
        layout->addWidget(view);
    return row;
}

QDialog *MakeAlert(QWidget *parent, const QString &message, const QString &informative,
                   const QList<AlertButton> &buttons, const QString &advice)
{
    auto *alert = new QDialog(parent, Qt::Sheet);
    alert->setWindowTitle(u"Zarvo"_s);
    alert->setWindowModality(Qt::WindowModal);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    auto *layout = new QVBoxLayout(alert);
    const int margin = Scaled(kAlertMargin);
    layout->setContentsMargins(margin, margin, margin, margin);
    layout->setSpacing(Scaled(kAlertSpacing));
    layout->addWidget(makeAlertText(message, true));
    layout->addWidget(makeAlertText(informative, false));
    if (!advice.isEmpty())
        layout->addWidget(makeAlertText(advice, false));
    auto *row = new QHBoxLayout;
    row->addStretch(1);
    for (const AlertButton &description : buttons) {
        QPushButton *button = MakePushButton(description.title);
        button->setDefault(&description == &buttons.first());
        QObject::connect(button, &QPushButton::clicked, alert, [alert, action = description.action] {
            if (action)
                action();
            alert->close();
        });
        row->addWidget(button);
    }
    layout->addLayout(row);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    return alert;
}
