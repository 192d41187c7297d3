#include "app/history_window.h"
#include "app/main_window.h"
#include "app/zarvo_app.h"
#include "device/device_history.h"

void ZarvoApp::loadHistory()
{
    savedPhones = LoadedHistory(HistoryWriter::load());
}

void ZarvoApp::persistHistory()
{
    m_historyWriter.store(StoredHistory(savedPhones), m_background);
}

void ZarvoApp::rememberDevice(const PhoneEntry &phone)
{
    savedPhones = Remembered(savedPhones, phone);
    persistHistory();
    refreshHistory();
}

void ZarvoApp::forgetDeviceID(const QString &id)
{
    if (busy)
        return;
    savedPhones = Forgotten(savedPhones, id);
    persistHistory();
    if (selectedPhone == id)
        clearDeviceSelection();
    refreshHistory();
}

void ZarvoApp::clearHistory()
{
    if (busy)
        return;
    savedPhones.clear();
    persistHistory();
    clearDeviceSelection();
    refreshHistory();
}

void ZarvoApp::refreshHistory()
{
    if (historyWindow)
        historyWindow->showEntries(savedPhones, phones, busy);
}

void ZarvoApp::showHistory()
{
    if (!historyWindow) {
        historyWindow = new HistoryWindow(window.get());
        connect(historyWindow, &HistoryWindow::forgetWanted, this, &ZarvoApp::forgetDeviceID);
        connect(historyWindow, &HistoryWindow::clearWanted, this, &ZarvoApp::clearHistory);
    }
    refreshHistory();
    historyWindow->present();
}
