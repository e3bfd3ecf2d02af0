#pragma once

#include <QMetaType>
#include <QString>

// A search request over one library; an empty member is no condition, non-empty members combine with
// AND. Known to the rest of the program as MusicLibrary::Query.
struct LibraryQuery {
    QString text;
    QString artist;
    QString title;
    QString album;
    QString genre;
    QString comment;
    QString filename;
    QString year;
    QString duration;

    // No condition at all: the query lists the whole library.
    bool isEmpty() const
    {
        return text.isEmpty() && artist.isEmpty() && title.isEmpty() && album.isEmpty() && genre.isEmpty() &&
               comment.isEmpty() && filename.isEmpty() && year.isEmpty() && duration.isEmpty();
    }
};

Q_DECLARE_METATYPE(LibraryQuery)
