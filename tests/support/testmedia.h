#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// Files the tests make or read: generated tones, written bytes, the fixtures that
// scripts/make-fixtures.sh made in the build tree.
namespace ondarotest {

// Runs a tool to its end (at most timeoutMs); true when it exited with 0. Its error output is
// logged when it failed.
bool runTool(const QString& program, const QStringList& arguments, int timeoutMs = 60000);

// A short 440 Hz sine tone made with sox, 8 kHz mono: small and quick for a library or a window.
// Returns whether the file exists afterwards.
bool makeSmallTone(const QString& path, double seconds = 0.2);

// Writes `bytes` as the whole file; true when all were written.
bool writeFile(const QString& path, const QByteArray& bytes);

// A file of the generated fixtures: fixturePath("tagged/tone.wav").
QString fixturePath(const QString& relative);

} // namespace ondarotest
