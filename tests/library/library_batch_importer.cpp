// Child process of the crash-safety test: imports a folder into the library "Crash" the way the window
// does (listing first, then addFiles per batch of 50) and prints one line after each committed batch.
// Usage: library_batch_importer <folder>; HOME decides where the database lives (test locations).

#include "musiclibrary.h"

#include <QCoreApplication>
#include <QStandardPaths>
#include <QStringList>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Ondaro"));
    QCoreApplication::setApplicationName(QStringLiteral("CrashSafety"));
    QStandardPaths::setTestModeEnabled(true);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() != 2) {
        std::fprintf(stderr, "usage: library_batch_importer <folder>\n");
        return 2;
    }
    if (!MusicLibrary::initialize())
        return 3;
    MusicLibrary library;
    library.setLibrary(QStringLiteral("Crash"));
    const QStringList paths = MusicLibrary::audioFilesIn(args.at(1), true);
    const int batchSize = 50;
    for (int first = 0, batch = 0; first < paths.size(); first += batchSize, ++batch) {
        const int added = library.addFiles(paths.mid(first, batchSize));
        // Printed only after addFiles returned, that is after its commit.
        std::printf("committed %d %d\n", batch, added);
        std::fflush(stdout);
    }
    std::printf("done\n");
    std::fflush(stdout);
    return 0;
}
