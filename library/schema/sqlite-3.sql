-- The store on the embedded database (SQLite), schema version 3 ("PRAGMA user_version").
--
-- StoreSchema runs these sections by name, in the order and under the conditions that its
-- migrations decide (they look at the columns actually present, and at the version). A line
-- "-- @name" starts a section; other lines starting with "--" are comments. Statements are separated
-- by blank lines; the lines of one statement are joined with one space, and a final ";" is dropped.
-- A "?" is bound by the code that runs the section.

-- @journal
PRAGMA journal_mode=WAL;

-- @tables
CREATE TABLE IF NOT EXISTS libraries(name TEXT PRIMARY KEY);

CREATE TABLE IF NOT EXISTS tracks( id INTEGER PRIMARY KEY AUTOINCREMENT, library TEXT NOT NULL,
    filepath TEXT, filename TEXT DEFAULT '', artist TEXT, title TEXT, album TEXT, genre TEXT, comment
    TEXT, year INTEGER DEFAULT 0, duration_ms INTEGER DEFAULT 0, duration_str TEXT DEFAULT '',
    play_count INTEGER DEFAULT 0, last_played TEXT DEFAULT '', date_added TEXT DEFAULT '', category
    TEXT DEFAULT 'Foreign', is_stream INTEGER DEFAULT 0, stream_limit_ms INTEGER DEFAULT 0);

CREATE INDEX IF NOT EXISTS idx_tracks_lib ON tracks(library);

CREATE INDEX IF NOT EXISTS idx_tracks_artist ON tracks(library, artist);

CREATE INDEX IF NOT EXISTS idx_tracks_title ON tracks(library, title);

-- @track-columns
PRAGMA table_info(tracks);

-- @add-duration-str
-- Unpadded minutes: older databases keep this spelling beside the padded one of inserts.
ALTER TABLE tracks ADD COLUMN duration_str TEXT DEFAULT '';

UPDATE tracks SET duration_str = printf('%d:%02d', duration_ms/60000, (duration_ms/1000)%60);

-- @add-play-counts
-- The three columns are one step; the last statement takes the migration time as date of addition.
ALTER TABLE tracks ADD COLUMN play_count INTEGER DEFAULT 0;

ALTER TABLE tracks ADD COLUMN last_played TEXT DEFAULT '';

ALTER TABLE tracks ADD COLUMN date_added TEXT DEFAULT '';

UPDATE tracks SET date_added=? WHERE date_added='';

-- @add-filename
ALTER TABLE tracks ADD COLUMN filename TEXT DEFAULT '';

-- @fill-filenames
-- Read every row, then write each row's file name (bind the name, then the id).
SELECT id, filepath FROM tracks;

UPDATE tracks SET filename=? WHERE id=?;

-- @read-version
PRAGMA user_version;

-- @drop-old-index
DROP TRIGGER IF EXISTS tracks_ai;

DROP TRIGGER IF EXISTS tracks_ad;

DROP TRIGGER IF EXISTS tracks_au;

DROP TABLE IF EXISTS tracks_fts;

-- @fts-index
-- Its success decides whether searches use the index or their LIKE forms.
CREATE VIRTUAL TABLE IF NOT EXISTS tracks_fts USING fts5( artist, title, album, genre, comment,
    filename, year, duration_str, content='tracks', content_rowid='id');

-- @fts-triggers
CREATE TRIGGER IF NOT EXISTS tracks_ai AFTER INSERT ON tracks BEGIN INSERT INTO
    tracks_fts(rowid,artist,title,album,genre,comment,filename,year,duration_str)
    VALUES(new.id,new.artist,new.title,new.album,new.genre,new.comment,new.filename,new.year,new.duration_str);
    END;

CREATE TRIGGER IF NOT EXISTS tracks_ad AFTER DELETE ON tracks BEGIN INSERT INTO
    tracks_fts(tracks_fts,rowid,artist,title,album,genre,comment,filename,year,duration_str)
    VALUES('delete',old.id,old.artist,old.title,old.album,old.genre,old.comment,old.filename,old.year,old.duration_str);
    END;

CREATE TRIGGER IF NOT EXISTS tracks_au AFTER UPDATE ON tracks BEGIN INSERT INTO
    tracks_fts(tracks_fts,rowid,artist,title,album,genre,comment,filename,year,duration_str)
    VALUES('delete',old.id,old.artist,old.title,old.album,old.genre,old.comment,old.filename,old.year,old.duration_str);
    INSERT INTO tracks_fts(rowid,artist,title,album,genre,comment,filename,year,duration_str)
    VALUES(new.id,new.artist,new.title,new.album,new.genre,new.comment,new.filename,new.year,new.duration_str);
    END;

-- @fts-rebuild
INSERT INTO tracks_fts(tracks_fts) VALUES('rebuild');

-- @version
PRAGMA user_version=3;

-- @track-params
CREATE TABLE IF NOT EXISTS track_params( filepath TEXT PRIMARY KEY, params TEXT);

-- @track-analysis
-- BIGINT and DOUBLE PRECISION: SQLite maps them to INTEGER and REAL. file_modified is milliseconds
-- since the epoch (UTC).
CREATE TABLE IF NOT EXISTS track_analysis( filepath TEXT PRIMARY KEY, file_size BIGINT NOT NULL,
    file_modified BIGINT NOT NULL, analysed_at TEXT, duration_ms BIGINT, integrated_lufs DOUBLE PRECISION,
    loudness_range_lu DOUBLE PRECISION, true_peak_dbtp DOUBLE PRECISION, cue_in_ms BIGINT, cue_out_ms
    BIGINT, mix_start_ms BIGINT, gain_db DOUBLE PRECISION, error TEXT);

-- @as-run
CREATE TABLE IF NOT EXISTS as_run( id INTEGER PRIMARY KEY AUTOINCREMENT, started_at TEXT NOT NULL,
    ended_at TEXT DEFAULT '', played_ms INTEGER DEFAULT 0, filepath TEXT, artist TEXT, title TEXT,
    is_stream INTEGER DEFAULT 0, ended_by TEXT DEFAULT '');

CREATE INDEX IF NOT EXISTS idx_as_run_started ON as_run(started_at);
