// The small views from which every window is made. Main thread only.
#pragma once

#include <QDialog>
#include <QLabel>
#include <QList>
#include <QPushButton>
#include <QWidget>

#include <functional>
#include <initializer_list>

/// Sizes are given for a font of 13 pixels and grow with the desktop's own font; they never shrink.
int Scaled(int pixels);

/// A wrapping, selectable, plain-text label in the desktop's font, bold on request. It takes `text` letter by
/// letter: no markup, no mnemonics. What goes beyond `mostLines`, where that is not 0, is left to a tooltip.
QLabel *ZarvoLabel(const QString &text, bool bold, int mostLines = 0);

/// Gives a label the toned-down colour of secondary text, which follows the palette.
void MakeSecondary(QLabel *label);

/// Keeps the colour of secondary text and placeholders readable in the palette at hand, also after it has
/// changed. To be called once, before the first window is made.
void FollowPalette();

/// The desktop's font in the size `points` of a scale on which 13 is that font's own.
QFont FontOfSize(double points);

/// Sets the label's font to `points` of a scale on which 13 is the desktop's font.
void SetFontSize(QLabel *label, double points, bool bold);

/// A push button that calls `action` of `target`.
template <typename Target, typename Action>
QPushButton *ZarvoButton(const QString &title, Target *target, Action action);

/// The views side by side, centred vertically, at their natural widths from the left; in several lines where
/// one does not hold them.
QWidget *ZarvoRow(std::initializer_list<QWidget *> views);

/// What scrolls inside a scroll area: starts at the top left, as wide as the visible part.
class FlippedView : public QWidget
{
    Q_OBJECT

public:
    using QWidget::QWidget;
};

/// One button of an alert: its title, and what it does before the alert closes.
struct AlertButton
{
    QString title;
    std::function<void()> action;
};

/// An alert: a message in bold, an informative text below it, advice where there is any, and the buttons in
/// their order, the first one the default. Comes as a sheet of `parent`, blocks no event loop, and deletes
/// itself when it closes. To be shown by the caller.
QDialog *MakeAlert(QWidget *parent, const QString &message, const QString &informative,
                   const QList<AlertButton> &buttons, const QString &advice = {});

QPushButton *MakePushButton(const QString &title);

template <typename Target, typename Action>
QPushButton *ZarvoButton(const QString &title, Target *target, Action action)
{
    QPushButton *button = MakePushButton(title);
    QObject::connect(button, &QPushButton::clicked, target, action);
    return button;
}
