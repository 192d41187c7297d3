// A line to type a secret into.
#pragma once

#include "signin/secret_text.h"

#include <QClipboard>
#include <QLineEdit>

/// Looks and behaves like a masked line edit, but the text is kept in a SecretText: the line edit itself
/// holds a stand-in character for each unit, because its buffers are copied and given back unwiped. Cannot be
/// copied or dragged from. text() gives the stand-ins only.
class SecretField : public QLineEdit
{
    Q_OBJECT

public:
    explicit SecretField(QWidget *parent = nullptr);

    const SecretText &secret() const { return m_secret; }
    /// Replaces the whole; the caret goes behind the last character. Does not emit secretEdited.
    void setSecret(SecretText secret);
    void clearSecret();
    /// Takes the place of the line edit's own, which would put the text into the line.
    void paste() { pasteFrom(QClipboard::Clipboard); }

Q_SIGNALS:
    /// The user has changed the text.
    void secretEdited();
    /// The user wanted to paste, and there is no text to be had.
    void nothingPasted();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void inputMethodEvent(QInputMethodEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;

private:
    void insertSecret(QStringView text);
    void pasteFrom(QClipboard::Mode mode);
    void followLine();
    void showStandIns(qsizetype caret);

    SecretText m_secret;
    int m_ownChange = 0;  // the line is being changed from here
    bool m_byKey = false; // the change that is under way
};
