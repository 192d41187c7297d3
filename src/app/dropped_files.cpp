#include "app/main_window.h"
#include "device/install_to_device.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QMimeData>
#include <QUrl>

namespace {

// The IPA that is dragged, or nothing; only ever to be read where it lies, not to be moved away.
QString draggedIPA(const QDropEvent *event)
{
    constexpr Qt::DropActions kReading = Qt::CopyAction | Qt::LinkAction;
    const QList<QUrl> urls = event->mimeData()->urls();
    if (urls.size() != 1 || !(event->possibleActions() & kReading))
        return {};
    const QString file = urls.first().toLocalFile();
    return IsIPAFile(file) ? file : QString();
}

void acceptForReading(QDropEvent *event)
{
    event->setDropAction(event->possibleActions() & Qt::CopyAction ? Qt::CopyAction : Qt::LinkAction);
    event->accept();
}

} // namespace

void MainWindow::dragEnterEvent(QDragEnterEvent *event)
{
    if (!draggedIPA(event).isEmpty())
        acceptForReading(event);
}

void MainWindow::dropEvent(QDropEvent *event)
{
    // Work may have begun, and the file may have gone, since the drag came in.
    const QString file = acceptDrops() ? draggedIPA(event) : QString();
    if (file.isEmpty())
        return event->ignore();
    acceptForReading(event);
    Q_EMIT ipaDropped(file);
}
