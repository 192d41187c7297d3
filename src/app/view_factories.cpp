#include "app/view_factories.h"

#include "app/row_layout.h"

#include <QApplication>
#include <QEvent>
#include <QFontInfo>
#include <QHBoxLayout>
#include <QMouseEvent>
#include <QScrollArea>
#include <QScrollBar>
#include <QTextDocument>
#include <QTextOption>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr double kReferenceFont = 13;     // the font size, in pixels, for which sizes are given
constexpr float kSecondaryOpacity = 0.6F; // 4.5 : 1 and more against the ground, light or dark
constexpr int kRowSpacing = 8;
constexpr int kNarrowestLabel = 60;
constexpr int kAlertWidth = 460;
constexpr int kAlertTextHeight = 300;
constexpr int kAlertMargin = 20;
constexpr int kAlertSpacing = 12;

// A wrapping QLabel asks for a compact block, and cuts a word that is longer than its line. This one asks for
// one line, wraps when it gets less, and breaks such a word, as paths and identifiers have them.
class WrappingLabel : public QLabel
{
public:
    using QLabel::QLabel;

    QSize sizeHint() const override
    {
        const QSize line = fontMetrics().size(0, text());
        return QSize(line.width() + 1, heightForWidth(line.width() + 1)).expandedTo(minimumSizeHint());
    }

    QSize minimumSizeHint() const override
    {
        return QSize(std::min(Scaled(kNarrowestLabel), fontMetrics().horizontalAdvance(text()) + 1),
                     fontMetrics().height());
    }

    int heightForWidth(int width) const override
    {
        const int height = QLabel::heightForWidth(width);
        return breakWords() ? QLabel::heightForWidth(width) : height;
    }

protected:
    // Selected text cannot be dragged away: that would be a loop of the toolkit's in this label, which may be
    // removed meanwhile.
    void mousePressEvent(QMouseEvent *event) override
    {
        if (event->button() == Qt::LeftButton && !(event->modifiers() & Qt::ShiftModifier))
            setSelection(0, 0);
        QLabel::mousePressEvent(event);
    }

    void paintEvent(QPaintEvent *event) override
    {
        QLabel::paintEvent(event);
        breakWords(); // paints again when the base class has laid the text out afresh
    }

private:
    // The label has no such mode, but the document of its selectable text has; the base class sets it back
    // with each new layout. True when something has changed.
    bool breakWords() const
    {
        auto *document = findChild<QTextDocument *>();
        QTextOption option = document ? document->defaultTextOption() : QTextOption();
        if (!document || option.wrapMode() == QTextOption::WrapAtWordBoundaryOrAnywhere)
            return false;
        option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        document->setDefaultTextOption(option);
        return true;
    }
};

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
        QColor color = QApplication::palette().color(QPalette::Active, QPalette::WindowText);
        color.setAlphaF(kSecondaryOpacity);
        if (QApplication::palette().color(QPalette::Active, QPalette::PlaceholderText) == color)
            return;
        QPalette palette;
        palette.setColor(QPalette::PlaceholderText, color);
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

QLabel *ZarvoLabel(const QString &text, bool bold)
{
    auto *label = new WrappingLabel(text);
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
