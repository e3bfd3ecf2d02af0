// A second studio for the tests: imports the audio files of a folder into a library of the server
// named by ONDARO_DATABASE_URL, in batches of 50 as the library window does, and prints the count.

#include "musiclibrary.h"

#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() != 3) {
        QTextStream(stderr) << "usage: pg_importer FOLDER LIBRARY" << Qt::endl;
        return 2;
    }
    if (!MusicLibrary::initialize())
        return 1;
    MusicLibrary library;
    library.setLibrary(args.at(2));
    const QStringList files = MusicLibrary::audioFilesIn(args.at(1), true);
    int added = 0;
    for (qsizetype i = 0; i < files.size(); i += 50)
        added += library.addFiles(files.mid(i, 50));
    QTextStream(stdout) << added << Qt::endl;
    return added == files.size() ? 0 : 1;
}
