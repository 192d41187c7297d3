#include "app/main_window.h"
#include "app/zarvo_app.h"
#include "views/view_factories.h"

#include <QApplication>
#include <QCompleter>
#include <QFileDialog>
#include <QFileInfo>
#include <QLayout>
#include <QLineEdit>

using namespace Qt::StringLiterals;

namespace {

constexpr int kMessageMargin = 9;

// The desktop's own dialog shows the message as its title; Qt's has room for a line above the list.
void showMessage(QFileDialog *chooser, const QString &message)
{
    chooser->setWindowTitle(message);
    QLayout *layout = chooser->layout();
    if (!layout)
        return;
    auto *line = qobject_cast<QLabel *>(layout->menuBar());
    if (!line) {
        line = new QLabel;
        line->setTextFormat(Qt::PlainText);
        line->setWordWrap(true);
        line->setMargin(Scaled(kMessageMargin));
        layout->setMenuBar(line);
    }
    line->setText(message);
}

} // namespace

void ZarvoApp::chooseDirectory(const QString &message, const Chosen &chosen)
{
    if (hasSheet())
        return;
    if (!m_folderChooser) {
        m_folderChooser = new QFileDialog(window.get());
        m_folderChooser->setFileMode(QFileDialog::Directory);
        m_folderChooser->setOption(QFileDialog::ShowDirsOnly);
        m_folderChooser->setLabelText(QFileDialog::Accept, u"Сохранить сюда"_s);
    }
    showMessage(m_folderChooser, message);
    openChooser(m_folderChooser, [this, chosen](const QString &folder) {
        m_folderChooser->setDirectory(folder); // a typed one leaves the chooser where it was
        chosen(folder);
    });
}

void ZarvoApp::chooseIPA()
{
    if (hasSheet())
        return;
    if (!m_ipaChooser) {
        m_ipaChooser = new QFileDialog(window.get(), u"Выбрать IPA…"_s);
        m_ipaChooser->setFileMode(QFileDialog::ExistingFile);
        m_ipaChooser->setNameFilter(u"IPA (*.ipa *.IPA)"_s);
    }
    if (!ipa.isEmpty())
        m_ipaChooser->setDirectory(QFileInfo(ipa).absolutePath());
    openChooser(m_ipaChooser, [this](const QString &file) { setIPA(file); });
}

// A chooser is kept: Qt may have a question of its own over it, in a loop of its own, at the moment
// when it is closed.
void ZarvoApp::openChooser(QFileDialog *chooser, const Chosen &chosen)
{
    auto *name = chooser->findChild<QLineEdit *>(u"fileNameEdit"_s); // none in the desktop's own
    if (name)
        name->clear(); // what was chosen before may not be in the folder that is shown
    const auto finish = [chooser, name, chosen](int result) {
        // Else it may unfold its proposals later, over the window, when the folder has been read. The field
        // takes it back with the focus.
        if (QCompleter *proposals = name ? name->completer() : nullptr)
            proposals->setWidget(nullptr);
        const QStringList files = result == QDialog::Accepted ? chooser->selectedFiles() : QStringList();
        if (!files.isEmpty())
            chosen(files.first());
    };
    connect(chooser, &QDialog::finished, this, finish, Qt::SingleShotConnection);
    chooser->open();
}

// Modality keeps the user's hands off the window below, but not the window's keys until the sheet is active.
bool ZarvoApp::hasSheet()
{
    return QApplication::activeModalWidget() != nullptr;
}

bool ZarvoApp::isChoosing() const
{
    return (m_folderChooser && m_folderChooser->isVisible()) || (m_ipaChooser && m_ipaChooser->isVisible());
}
