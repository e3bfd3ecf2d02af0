#pragma once

#include <QString>

class QMediaMetaData;

// The now-playing text of a stream's metadata: "artist - title", or the title alone when the
// artist is empty or already part of the title (case-sensitive). Empty when there is no title.
QString streamTitle(const QMediaMetaData& data);
