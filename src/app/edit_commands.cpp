#include "app/edit_commands.h"

#include "signin/secret_field.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>
#include <QPlainTextEdit>
#include <QTableView>

using namespace Qt::StringLiterals;

namespace {

template <typename Editor>
void runInEditor(Editor *editor, EditCommand command)
{
    switch (command) {
    case EditCommand::Cut:
        return editor->isReadOnly() ? void() : editor->cut();
    case EditCommand::Copy:
        return editor->copy();
    case EditCommand::Paste:
        return editor->isReadOnly() ? void() : editor->paste();
    case EditCommand::SelectAll:
        return editor->selectAll();
    }
}

void copy(const QString &text)
{
    if (!text.isEmpty())
        QGuiApplication::clipboard()->setText(text);
}

QString selectedRow(const QTableView *table)
{
    QStringList texts;
    const QModelIndexList rows = table->selectionModel()->selectedRows();
    for (int column = 0; !rows.isEmpty() && column < table->model()->columnCount(); ++column)
        texts << rows.first().siblingAtColumn(column).data().toString();
    return texts.join(u'\t');
}

} // namespace

void RunEditCommand(QWidget *focused, EditCommand command)
{
    if (auto *secret = qobject_cast<SecretField *>(focused)) {
        runInEditor(secret, command);
    } else if (auto *line = qobject_cast<QLineEdit *>(focused)) {
        runInEditor(line, command);
    } else if (auto *text = qobject_cast<QPlainTextEdit *>(focused)) {
        runInEditor(text, command);
    } else if (auto *label = qobject_cast<QLabel *>(focused)) {
        if (command == EditCommand::Copy)
            copy(label->selectedText());
        else if (command == EditCommand::SelectAll)
            label->setSelection(0, static_cast<int>(label->text().size()));
    } else if (const auto *table = qobject_cast<QTableView *>(focused)) {
        if (command == EditCommand::Copy)
            copy(selectedRow(table));
    }
}
