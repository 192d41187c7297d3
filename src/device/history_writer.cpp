#include "device/history_writer.h"

#include "app/background.h"

#include <QSettings>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

const QString kProgram = u"Zarvo"_s; // organisation and application
const QString kSettingsKey = u"zarvo.deviceHistory.v1"_s;

} // namespace

QVariant HistoryWriter::load()
{
    return QSettings(kProgram, kProgram).value(kSettingsKey);
}

void HistoryWriter::store(QVariantList history, Background &background)
{
    {
        const std::lock_guard lock(m_mutex);
        m_newest = std::move(history);
        if (std::exchange(m_isWriting, true))
            return;
    }
    if (!background.run([this] { write(); }))
        write(); // late is better than never
}

void HistoryWriter::write()
{
    while (const auto history = next()) {
        QSettings stored(kProgram, kProgram);
        stored.setValue(kSettingsKey, *history);
        stored.sync();
    }
}

std::optional<QVariantList> HistoryWriter::next()
{
    const std::lock_guard lock(m_mutex);
    m_isWriting = m_newest.has_value();
    return std::exchange(m_newest, std::nullopt);
}
