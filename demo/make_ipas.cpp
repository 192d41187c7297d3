// Writes an IPA for every version of every app that the demonstration's store hands out.
#include "demo_catalog.h"
#include "ipa_writer.h"

#include <QDir>
#include <QFile>

#include <cstdio>

using namespace Qt::StringLiterals;

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fputs("make_ipas FOLDER\n", stderr);
        return 1;
    }
    const QDir folder(QFile::decodeName(argv[1]));
    if (!QDir().mkpath(folder.path())) {
        std::fprintf(stderr, "make_ipas: cannot make %s\n", argv[1]);
        return 1;
    }
    const DemoCatalog catalog = readDemoCatalog();
    for (const DemoApp &app : catalog.apps) {
        if (!app.refusal.isEmpty())
            continue;
        for (const QString &version : app.versions) {
            const QString path = folder.filePath(demoIPAName(app.id, version));
            const IPAContent content{.id = app.id,
                                     .executable = app.id.section(u'.', -1),
                                     .name = app.name.section(u'/', 0, 0),
                                     .version = version,
                                     .padding = app.bytes,
                                     .binaryInfo = true};
            if (!writeIPA(QFile::encodeName(path).toStdString(), content)) {
                std::fprintf(stderr, "make_ipas: cannot write %s\n", qUtf8Printable(path));
                return 1;
            }
        }
    }
    return 0;
}
