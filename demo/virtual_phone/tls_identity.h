// Keys and certificates of phones and computers, and what a pair record holds.
#pragma once

#include <QByteArray>
#include <QString>
#include <QVariantMap>

#include <openssl/ssl.h>

#include <memory>
#include <optional>

using Key = std::shared_ptr<EVP_PKEY>;
using TlsContext = std::shared_ptr<SSL_CTX>;

Key makeKey();
QByteArray privatePem(const Key &key);
/// In the form "RSA PUBLIC KEY", as a phone tells its own.
QByteArray publicPem(const Key &key);

/// The computer's part of the pairings that exist from the start.
struct HostIdentity
{
    Key key; ///< of its root and of its host certificate: one key is enough for a computer that nobody
             ///< attacks
    QString hostId;
    QString systemBuid;

    static HostIdentity make();
};

/// A whole pair record of that computer with the phone whose key is `device`, private keys included.
QVariantMap makePairRecord(const HostIdentity &host, const Key &device, const QString &udid);

/// What the phone shows and asks for in a session with the computer of `pairRecord`: its device certificate,
/// and a client certificate that comes from the record's root. With `refuse` no certificate will do. Nothing
/// when the record holds no usable certificates.
TlsContext makeTlsContext(const QVariantMap &pairRecord, const Key &device, bool refuse);
