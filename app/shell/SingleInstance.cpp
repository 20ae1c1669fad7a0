#include "shell/SingleInstance.h"

#include <QCryptographicHash>
#include <QLocalSocket>

namespace quillet {
namespace {

constexpr int answerWithinMs = 2000;
const QByteArray openRequest = "open\n";
const QByteArray openAnswer = "ok\n";

} // namespace

SingleInstance::SingleInstance(const std::string& key) {
    const QByteArray digest =
        QCryptographicHash::hash(QByteArray::fromStdString(key), QCryptographicHash::Sha256);
    name_ = QStringLiteral("quillet-") + QString::fromLatin1(digest.toHex().left(16));
}

bool SingleInstance::handOver() {
    QLocalSocket socket;
    socket.connectToServer(name_);
    if (!socket.waitForConnected(answerWithinMs)) {
        return false;
    }
    socket.write(openRequest);
    if (!socket.waitForBytesWritten(answerWithinMs)) {
        return false;
    }
    // A copy that is hung, or a socket left behind by one that crashed, gives no answer.
    while (socket.bytesAvailable() < openAnswer.size()) {
        if (!socket.waitForReadyRead(answerWithinMs)) {
            return false;
        }
    }
    return socket.readAll().startsWith(openAnswer);
}

bool SingleInstance::listen(std::function<void()> onOpen) {
    server_.setSocketOptions(QLocalServer::UserAccessOption);
    if (!server_.listen(name_)) {
        // Left behind by a copy that ended without closing it: nobody answered handOver.
        QLocalServer::removeServer(name_);
        if (!server_.listen(name_)) {
            return false;
        }
    }
    connect(&server_, &QLocalServer::newConnection, this, [this, onOpen = std::move(onOpen)] {
        while (QLocalSocket* socket = server_.nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, socket, [socket, onOpen] {
                if (!socket->canReadLine()) {
                    return;
                }
                if (socket->readLine() == openRequest) {
                    socket->write(openAnswer);
                    onOpen();
                }
                socket->disconnectFromServer();
            });
        }
    });
    return true;
}

} // namespace quillet
