// What the tests of archives share: a folder of their own, and a limit that is taken back.
#pragma once

#include "ipa_writer.h"

#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace fs = std::filesystem;

/// Gone with all that is in it, names that Qt cannot express included.
class Folder
{
public:
    Folder() = default;
    ~Folder() { fs::remove_all(m_folder.path().toStdString()); }
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;
    fs::path operator/(const std::string &name) const
    {
        return fs::path(m_folder.path().toStdString()) / name;
    }

private:
    QTemporaryDir m_folder;
};

/// The bytes of a file, or where a link points to; empty when there is none.
inline std::string contents(const fs::path &file)
{
    if (fs::is_symlink(file))
        return fs::read_symlink(file).string();
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// A lower limit of this process (RLIMIT_…) while the result lives.
inline auto Limit(__rlimit_resource_t resource, rlim_t value)
{
    rlimit before = {};
    ::getrlimit(resource, &before);
    const rlimit lower{value, before.rlim_max};
    if (::setrlimit(resource, &lower) != 0)
        qFatal("cannot set a limit");
    return qScopeGuard([=] { ::setrlimit(resource, &before); });
}

/// An environment variable while the result lives.
inline auto Variable(const QByteArray &name, const QByteArray &value)
{
    const QByteArray before = qgetenv(name.constData());
    qputenv(name.constData(), value);
    return qScopeGuard(
        [=] { before.isNull() ? qunsetenv(name.constData()) : qputenv(name.constData(), before); });
}
