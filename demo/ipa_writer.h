// Writes ZIP archives and IPA files: for the demonstration, the measurements and the tests.
#pragma once

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QString>

#include <filesystem>

/// One entry as it is to stand in the archive. Nothing is checked: hostile archives are written the same way.
struct ZipEntry
{
    QByteArray name{}; ///< raw bytes; a folder's name ends in "/"
    QByteArray data{};
    bool deflated = true;
    quint16 flags = 0x0800; ///< general purpose flags: 0x0800 the name is UTF-8, 0x0001 encrypted
    quint32 mode =
        0100644;          ///< Unix type and permissions; 0120777 makes a symbolic link whose target is `data`
    qint64 padding = 0;   ///< bytes of noise after `data`, for stored entries; at most 4 GB less one block
    bool damaged = false; ///< the checksum is wrong
};

/// A ZIP archive that is being written, entry by entry; beyond 4 GB or 65,535 entries as ZIP64. One thread.
class ZipWriter
{
public:
    /// Creates or empties the file.
    explicit ZipWriter(const std::filesystem::path &path);

    void add(const ZipEntry &entry);
    /// Writes the directory. False when the file could not be created or anything was not written.
    bool finish();

private:
    void write(const QByteArray &bytes);

    QFile m_file;
    QByteArray m_directory;
    qint64 m_count = 0;
    bool m_good = false;
};

/// The content of an app's IPA.
struct IPAContent
{
    QString id = QStringLiteral("com.example.app");
    QString executable = QStringLiteral("App");
    QString name = QStringLiteral("App"); ///< of the folder in Payload, without ".app"
    QString version = QStringLiteral("1.0");
    qint64 padding = 0;      ///< bytes of noise that make the file large
    bool binaryInfo = false; ///< Info.plist as a binary property list
};

/// The Info.plist of such an app.
QByteArray infoPropertyList(const IPAContent &content);
/// The entries of a sound IPA, for a caller who wants to change some.
QList<ZipEntry> entriesOfIPA(const IPAContent &content);
/// Writes a sound IPA; false when it could not be written.
bool writeIPA(const std::filesystem::path &path, const IPAContent &content);
/// Writes just these entries.
bool writeZip(const std::filesystem::path &path, const QList<ZipEntry> &entries);
