#pragma once

// A private PostgreSQL server reached over TCP on 127.0.0.1 (scripts/pg-test-server.sh with
// ONDARO_PG_TCP_PORT), which a test can hang: pause() stops every process of the server with SIGSTOP,
// as a server that no longer answers (the kernel still accepts connections and data), and resume()
// continues them. Header-only so that tests of several folders can use it.

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QTcpServer>

#include <atomic>
#include <chrono>
#include <thread>

#include <signal.h>
#include <sys/types.h>

namespace pgtest {

class TcpServer
{
public:
    TcpServer() = default;
    TcpServer(const TcpServer&) = delete;
    TcpServer& operator=(const TcpServer&) = delete;
    ~TcpServer()
    {
        resume();
        stop();
    }

    // Whether a PostgreSQL server is installed here at all.
    static bool available()
    {
        QProcess ls;
        ls.start(QStringLiteral("bash"),
                 {QStringLiteral("-c"), QStringLiteral("ls /usr/lib/postgresql/*/bin/postgres")});
        return ls.waitForFinished(10000) && ls.exitCode() == 0;
    }

    // Starts a fresh server with its files in `folder` (keep it short: it holds a socket) on a free port.
    bool start(const QString& folder)
    {
        m_folder = folder;
        {
            QTcpServer probe;
            if (!probe.listen(QHostAddress::LocalHost, 0))
                return false;
            m_port = probe.serverPort();
        }
        if (!script(QStringLiteral("start"), QStringLiteral("--fresh")))
            return false;
        m_url = QStringLiteral("postgresql://ondaro@127.0.0.1:%1/ondaro").arg(m_port);
        return true;
    }

    void stop()
    {
        if (m_folder.isEmpty())
            return;
        script(QStringLiteral("stop"), QStringLiteral("--remove"));
        m_folder.clear();
    }

    QString url() const { return m_url; }
    int port() const { return m_port; }

    // SIGSTOP to the server and every session process (they share its process group).
    bool pause() { return signalAll(SIGSTOP) && (m_paused = true); }
    bool resume()
    {
        if (!m_paused)
            return true;
        m_paused = !signalAll(SIGCONT);
        return !m_paused;
    }

private:
    bool script(const QString& command, const QString& option)
    {
        QProcess run;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("ONDARO_PG_TCP_PORT"), QString::number(m_port));
        run.setProcessEnvironment(env);
        run.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        run.start(QStringLiteral("bash"), {QStringLiteral(ONDARO_SOURCE_DIR "/scripts/pg-test-server.sh"),
                                           command, m_folder, option});
        return run.waitForFinished(120000) && run.exitStatus() == QProcess::NormalExit && run.exitCode() == 0;
    }

    // PostgreSQL gives each session process a process group of its own, so they are found as the
    // children of the server's main process. Stopped first, the main process starts no new one.
    bool signalAll(int signal) const
    {
        QFile pidFile(m_folder + QStringLiteral("/server.pid"));
        if (!pidFile.open(QIODevice::ReadOnly))
            return false;
        const pid_t main = pid_t(pidFile.readAll().trimmed().toLongLong());
        if (main <= 0 || ::kill(main, signal) != 0)
            return false;
        const QStringList entries =
            QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        for (const QString& entry : entries) {
            bool isPid = false;
            const pid_t pid = pid_t(entry.toLongLong(&isPid));
            if (!isPid)
                continue;
            QFile stat(QStringLiteral("/proc/%1/stat").arg(entry));
            if (!stat.open(QIODevice::ReadOnly))
                continue;
            // "pid (name) state ppid ...": the name may hold spaces, so read after its last ')'.
            const QByteArray line = stat.readAll();
            const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
            if (fields.size() > 1 && pid_t(fields.at(1).toLongLong()) == main)
                ::kill(pid, signal);
        }
        return true;
    }

    QString m_folder;
    QString m_url;
    int m_port = 0;
    bool m_paused = false;
};

// Continues a stopped server after a while from a thread of its own, so that a test thread that hangs
// with the server is freed and the server never stays stopped after a failed test.
class ResumeLater
{
public:
    ResumeLater(pgtest::TcpServer& server, int ms) : m_server(server)
    {
        m_thread = std::thread([this, ms] {
            for (int waited = 0; waited < ms && !m_cancelled; waited += 50)
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            m_server.resume();
        });
    }
    ~ResumeLater()
    {
        m_cancelled = true;
        m_thread.join();
    }

private:
    pgtest::TcpServer& m_server;
    std::thread m_thread;
    std::atomic<bool> m_cancelled{false};
};

} // namespace pgtest
