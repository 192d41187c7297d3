// The label that every text of the windows stands in. Main thread only.
#pragma once

#include <QLabel>

#include <memory>
#include <optional>

class QTextDocument;

/// Asks for one line, wraps when it gets less, and breaks a word that is longer than its line, as paths and
/// identifiers have them. With a bound on its lines the last one ends in "…" where the text goes on, and a
/// tooltip has the whole; so have text(), what is copied, and what a screen reader is told.
class WrappingLabel : public QLabel
{
public:
    /// `mostLines` 0: as many as the text takes.
    WrappingLabel(const QString &text, int mostLines);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    int heightForWidth(int width) const override;

protected:
    bool event(QEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    /// The last line that there is room for, where the text goes on after it.
    struct LastLine
    {
        QRect place;
        QString rest; ///< from the line's start to the text's end
    };
    std::unique_ptr<QTextDocument> laidOut(int width) const;
    std::optional<LastLine> lastLine(const QTextDocument &document) const;
    void paintUpTo(const LastLine &last, QTextDocument &document);
    void breakWords();

    int m_mostLines;
};
