#include "app/main_menu.h"

#include "app/edit_commands.h"

#include <QApplication>
#include <QMenu>
#include <QMenuBar>

#include <tuple>

using namespace Qt::StringLiterals;

void BuildMainMenu(QMenuBar *bar)
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
    QObject::connect(quit, &QAction::triggered, qApp, &QCoreApplication::quit);

    QMenu *edit = bar->addMenu(u"Правка"_s);
    const std::tuple<QString, QKeySequence::StandardKey, EditCommand> commands[] = {
        {u"Вырезать"_s, QKeySequence::Cut, EditCommand::Cut},
        {u"Копировать"_s, QKeySequence::Copy, EditCommand::Copy},
        {u"Вставить"_s, QKeySequence::Paste, EditCommand::Paste},
        {u"Выбрать всё"_s, QKeySequence::SelectAll, EditCommand::SelectAll},
    };
    for (const auto &[title, key, command] : commands)
        QObject::connect(add(edit, title, key), &QAction::triggered, edit,
                         [command = command] { RunEditCommand(QApplication::focusWidget(), command); });
}
