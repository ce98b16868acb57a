#pragma once

#include "store/cluster/jsonstream.h"
#include "store/cluster/remote.h"
#include "store/cluster/rpcmessage.h"
#include "store/descriptor.h"

#include <optional>
#include <string>

// A member of a cluster that listens at a path or an address and says what it is told, byte by byte. It waits
// for whoever is to connect or to send, ten seconds at most, and throws then.
class RawMember {
public:
    explicit RawMember(const store::Remote& remote);
    // At the path of a Unix socket.
    explicit RawMember(const std::string& path);

    // Where it listens, with the port that it got.
    const store::Remote& remote() const { return remote_; }

    // Whether a connection waits to be taken.
    bool isCalled() const;
    // Takes the next connection; the one before ends.
    void accept();
    void sendBytes(const std::string& bytes) const;
    void send(const store::Json& message) const { sendBytes(message.dump()); }
    void answer(const store::Json& id, const store::Json& result, const store::Json& error = nullptr) const;
    // The next message, if it has arrived as a whole.
    std::optional<store::Json> poll();
    // The next message.
    store::Json receive();
    // Whether the other end closed the connection. What it sent before is dropped.
    bool isLeft();
    void disconnect() { connection_.reset(); }

private:
    std::string read();

    store::Remote remote_;
    store::Descriptor listening_;
    std::optional<store::Descriptor> connection_;
    store::JsonStream input_;
};
