#pragma once

// A small live MP3 stream server on 127.0.0.1 for the relay and metadata tests: it sends one
// MP3 file in a loop, paced at its bit rate, to every client. It can die (close everything), come
// back on the same port, stall (keep the connection but send nothing) or never answer at all.

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

class StreamServer : public QObject
{
    Q_OBJECT

public:
    // bytesPerSecond: the MP3's bit rate / 8.
    StreamServer(const QByteArray& mp3, int bytesPerSecond, QObject* parent = nullptr)
        : QObject(parent), data(mp3), rate(bytesPerSecond)
    {
        connect(&server, &QTcpServer::newConnection, this, &StreamServer::accept);
        pacing.setInterval(50);
        connect(&pacing, &QTimer::timeout, this, &StreamServer::sendSome);
    }

    bool start(quint16 wantedPort = 0)
    {
        if (!server.listen(QHostAddress::LocalHost, wantedPort))
            return false;
        portUsed = server.serverPort();
        pacing.start();
        return true;
    }

    // The port of the last start, also while the server is down.
    quint16 port() const { return portUsed; }
    QString url() const { return QStringLiteral("http://127.0.0.1:%1/live.mp3").arg(portUsed); }
    int clientCount() const { return int(clients.size()); }
    int requestCount() const { return requests; }

    // Closes the listening socket and every connection, as a crashed server would.
    void kill()
    {
        server.close();
        for (Client& c : clients)
            if (c.socket)
                c.socket->abort();
        clients.clear();
    }

    void setStalled(bool on) { stalled = on; }
    // Accept connections but never send a reply.
    void setSilent(bool on) { silent = on; }

private:
    struct Client {
        QPointer<QTcpSocket> socket;
        bool answered = false;
        qsizetype offset = 0;
        QByteArray request;
    };

    void accept()
    {
        while (QTcpSocket* socket = server.nextPendingConnection()) {
            socket->setParent(this);
            clients.append({socket, false, 0, {}});
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        }
    }

    void sendSome()
    {
        for (qsizetype i = clients.size() - 1; i >= 0; --i) {
            Client& c = clients[i];
            if (!c.socket || c.socket->state() != QAbstractSocket::ConnectedState) {
                clients.removeAt(i);
                continue;
            }
            if (!c.answered) {
                c.request += c.socket->readAll();
                if (!c.request.contains("\r\n\r\n") || silent)
                    continue;
                ++requests;
                c.answered = true;
                c.socket->write(
                    "HTTP/1.0 200 OK\r\nContent-Type: audio/mpeg\r\nCache-Control: no-cache\r\n\r\n");
                // A second of audio at once so that the player starts without waiting.
                write(c, rate);
                continue;
            }
            c.socket->readAll();
            if (!stalled)
                write(c, rate * pacing.interval() / 1000);
        }
    }

    void write(Client& c, int bytes)
    {
        while (bytes > 0 && !data.isEmpty()) {
            const qsizetype chunk = std::min<qsizetype>(bytes, data.size() - c.offset);
            c.socket->write(data.constData() + c.offset, chunk);
            c.offset = (c.offset + chunk) % data.size();
            bytes -= int(chunk);
        }
    }

    QTcpServer server;
    QTimer pacing;
    QByteArray data;
    int rate;
    QList<Client> clients;
    bool stalled = false;
    bool silent = false;
    int requests = 0;
    quint16 portUsed = 0;
};
