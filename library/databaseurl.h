#pragma once

#include <QString>

// Where the library lives: empty for the embedded SQLite database of this workstation, or a
// PostgreSQL URL such as "postgresql://ondaro@studio-db:5432/ondaro" or
// "postgresql:///ondaro?host=/run/postgresql" for a library that several machines share.
struct DatabaseUrl {
    QString text; // as given, trimmed
    QString userName;
    QString password;
    QString host;  // a host name, an address, or a socket folder (a path starting with "/")
    int port = -1; // -1 = the server's default
    QString databaseName;
    QString connectOptions; // passed on to the driver: "key=value;key=value"
    QString error;          // why the text is not a usable URL; empty when it is

    bool isEmbedded() const { return text.isEmpty(); }
    bool isValid() const { return error.isEmpty(); }
    // The URL without its password, for messages and logs.
    QString displayText() const;
    // The same server and credentials with another database name.
    DatabaseUrl withDatabase(const QString& name) const;

    static DatabaseUrl parse(const QString& text);
    // The environment variable ONDARO_DATABASE_URL, or else the setting "library/databaseUrl".
    static DatabaseUrl configured();
};
