#include "playlistcolours.h"

#include "trackparamschanges.h"

#include <QTimer>

#include <utility>

PlaylistColours::PlaylistColours(QObject* parent) : QObject(parent)
{
    // Zero milliseconds: the files one repaint asks for are read together once it is over.
    m_readTimer = new QTimer(this);
    m_readTimer->setSingleShot(true);
    m_readTimer->setInterval(0);
    connect(m_readTimer, &QTimer::timeout, this, &PlaylistColours::readColours);
    connect(TrackParamsChanges::instance(), &TrackParamsChanges::changed, this,
            &PlaylistColours::readColourAgain);
}

void PlaylistColours::setParamsSource(ParamsSource source)
{
    m_paramsSource = std::move(source);
    m_hasVoiceover.clear();
    m_coloursToRead.clear();
}

std::optional<bool> PlaylistColours::hasVoiceover(const QString& filePath) const
{
    const auto known = m_hasVoiceover.constFind(filePath);
    if (known != m_hasVoiceover.constEnd())
        return *known;
    m_coloursToRead.insert(filePath);
    m_readTimer->start();
    return std::nullopt;
}

void PlaylistColours::refresh(const QList<Track>& rows)
{
    // Files no longer in the list are forgotten; the others are read again after this repaint.
    QSet<QString> inList;
    for (const Track& track : rows)
        if (m_hasVoiceover.contains(track.filePath))
            inList.insert(track.filePath);
    for (auto it = m_hasVoiceover.begin(); it != m_hasVoiceover.end();)
        it = inList.contains(it.key()) ? std::next(it) : m_hasVoiceover.erase(it);
    m_coloursToRead.unite(inList);
    if (!m_coloursToRead.isEmpty())
        m_readTimer->start();
}

bool PlaylistColours::readHasVoiceover(const QString& filePath) const
{
    const TrackParams params = m_paramsSource ? m_paramsSource(filePath) : TrackParams::load(filePath);
    return params.voiceoverIns >= 1 && !params.voiceoverSource.isEmpty();
}

bool PlaylistColours::storeColour(const QString& filePath, bool hasVoiceover)
{
    const auto known = m_hasVoiceover.constFind(filePath);
    // A file never painted with a voiceover looked the same before its first read.
    const bool before = known != m_hasVoiceover.constEnd() && *known;
    m_hasVoiceover.insert(filePath, hasVoiceover);
    return before != hasVoiceover;
}

void PlaylistColours::readColours()
{
    const QSet<QString> files = std::exchange(m_coloursToRead, {});
    QSet<QString> changed;
    for (const QString& file : files)
        if (storeColour(file, readHasVoiceover(file)))
            changed.insert(file);
    if (!changed.isEmpty())
        emit coloursChanged(changed);
}

void PlaylistColours::readColourAgain(const QString& filePath)
{
    // Only a file the list has painted matters; it is read now, once, not at the next repaint.
    if (!m_hasVoiceover.contains(filePath) && !m_coloursToRead.contains(filePath))
        return;
    m_coloursToRead.remove(filePath);
    if (storeColour(filePath, readHasVoiceover(filePath)))
        emit coloursChanged({filePath});
}
