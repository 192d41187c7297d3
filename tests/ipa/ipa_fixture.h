// What the tests of archives share: a folder of their own, and a limit that is taken back.
#pragma once

#include "ipa_writer.h"

#include <QTemporaryDir>
#include <QTest>

#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

namespace fs = std::filesystem;

/// Gone with all that is in it, names that the toolkit cannot express included.
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

/// A lower limit of this process (RLIMIT_…) while the object lives.
class Limit
{
public:
    Limit(__rlimit_resource_t resource, rlim_t value)
        : m_resource(resource)
    {
        const rlimit lower{value, ::getrlimit(resource, &m_before) == 0 ? m_before.rlim_max : 0};
        if (::setrlimit(resource, &lower) != 0)
            qFatal("cannot set a limit");
    }
    ~Limit() { ::setrlimit(m_resource, &m_before); }
    Limit(const Limit &) = delete;
    Limit &operator=(const Limit &) = delete;

private:
    __rlimit_resource_t m_resource;
    rlimit m_before = {};
};
