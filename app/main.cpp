#include "applicationidentity.h"
#include "libraryconnection.h"
#include "musiclibrary.h"
#include "musiclibrarydialog.h"

#include <QApplication>
#include <QIcon>
#include <QTextStream>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    setOndaroIdentity();
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/appicon.png")));

    // A database that cannot be opened does not stop start-up; the window then lists nothing and its
    // status line says why (an unreachable server comes back by itself).
    if (!MusicLibrary::initialize() && !LibraryConnection::problem().isEmpty())
        QTextStream(stderr) << "Ondaro: " << LibraryConnection::problem() << Qt::endl;

    int result = 0;
    {
        MusicLibraryDialog window;
        window.setWindowTitle(QStringLiteral("Ondaro — Library Manager"));
        window.setWindowFlag(Qt::Window, true);
        window.resize(960, 620);
        window.show();
        result = QApplication::exec();
    } // the window goes before the application object
    return result;
}
