// ondaro-studio: the on-air window. Same identity as the Library Manager, so both share the
// library database and the playout settings.

#include "applicationidentity.h"
#include "musiclibrary.h"
#include "studiocommandline.h"
#include "studiowindow.h"

#include <QApplication>
#include <QIcon>

#include <cstdio>

int main(int argc, char* argv[])
{
    // Help and version are answered before the window system is touched, so that they work without a
    // display (on a server, over ssh). Everything else is read after QApplication has taken its own
    // options (-platform, -style, ...) out of the arguments.
    for (int i = 1; i < argc; ++i) {
        const QByteArray argument(argv[i]);
        if (argument == "--help" || argument == "-h" || argument == "-?") {
            std::fputs(qPrintable(StudioCommandLine::helpText()), stdout);
            return 0;
        }
        if (argument == "--version" || argument == "-v") {
            std::puts("ondaro-studio 1.0.0");
            return 0;
        }
    }

    QApplication app(argc, argv);
    setOndaroIdentity();
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/appicon.png")));

    const StudioCommandLine::Options options = StudioCommandLine::parse(QCoreApplication::arguments());
    if (!options.error.isEmpty()) {
        std::fprintf(stderr, "ondaro-studio: %s\n\n%s", qPrintable(options.error),
                     qPrintable(StudioCommandLine::helpText()));
        return 2;
    }

    // A database that cannot be opened does not stop the studio: it plays what it is given and
    // says in its log that the library and the as-run log are off.
    MusicLibrary::initialize();

    int result = 0;
    {
        StudioWindow window;
        window.show();
        window.start(options);
        result = QApplication::exec();
    } // the window goes before the application object
    return result;
}
