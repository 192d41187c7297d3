#include "tls_identity.h"

#include <QUuid>

#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int kKeyBits =
    1024; // nobody attacks a phone that is not there, and whoever starts one waits for its keys
constexpr long kValidSeconds = 10L * 365 * 24 * 3600;
constexpr int kReadBuffer = 256 * 1024; // a dozen records in one system call

using Bio = std::unique_ptr<BIO, decltype(&BIO_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

Bio memory()
{
    return Bio(BIO_new(BIO_s_mem()), BIO_free);
}

QByteArray contents(const Bio &bio)
{
    char *data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return QByteArray(data, size);
}

Bio reading(const QByteArray &text)
{
    return Bio(BIO_new_mem_buf(text.constData(), static_cast<int>(text.size())), BIO_free);
}

Certificate parseCertificate(const QByteArray &pem)
{
    return Certificate(PEM_read_bio_X509(reading(pem).get(), nullptr, nullptr, nullptr), X509_free);
}

void extend(X509 *certificate, int extension, const char *value)
{
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> made(
        X509V3_EXT_conf_nid(nullptr, nullptr, extension, value), X509_EXTENSION_free);
    X509_add_ext(certificate, made.get(), -1);
}

QByteArray makeCertificate(const Key &subject, const Key &issuer, bool authority)
{
    const Certificate made(X509_new(), X509_free);
    X509_set_version(made.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(made.get()), 0);
    X509_gmtime_adj(X509_getm_notBefore(made.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(made.get()), kValidSeconds);
    X509_set_pubkey(made.get(), subject.get());
    extend(made.get(), NID_basic_constraints, authority ? "critical,CA:TRUE" : "critical,CA:FALSE");
    if (!authority)
        extend(made.get(), NID_key_usage, "critical,digitalSignature,keyEncipherment");
    X509_sign(made.get(), issuer.get(), EVP_sha256());
    const Bio text = memory();
    PEM_write_bio_X509(text.get(), made.get());
    return contents(text);
}

// The root that the connected client's certificate has to come from; owned by the context.
int rootIndex()
{
    static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr,
                                                      [](void *, void *root, CRYPTO_EX_DATA *, int, long,
                                                         void *) { X509_free(static_cast<X509 *>(root)); });
    return index;
}

// Clients of the field show the root itself, not the certificate of the host.
int verify(X509_STORE_CTX *store, void *context)
{
    const X509 *root = static_cast<X509 *>(SSL_CTX_get_ex_data(static_cast<SSL_CTX *>(context), rootIndex()));
    X509 *shown = X509_STORE_CTX_get0_cert(store);
    const bool genuine = root && shown && X509_verify(shown, X509_get0_pubkey(root)) == 1;
    X509_STORE_CTX_set_error(store, genuine ? X509_V_OK : X509_V_ERR_CERT_REJECTED);
    return genuine ? 1 : 0;
}

} // namespace

Key makeKey()
{
    return Key(EVP_RSA_gen(kKeyBits), EVP_PKEY_free);
}

QByteArray privatePem(const Key &key)
{
    const Bio text = memory();
    PEM_write_bio_PrivateKey_traditional(text.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    return contents(text);
}

QByteArray publicPem(const Key &key)
{
    unsigned char *der = nullptr;
    const int size = i2d_PublicKey(key.get(), &der);
    const Bio text = memory();
    PEM_write_bio(text.get(), PEM_STRING_RSA_PUBLIC, "", der, size);
    OPENSSL_free(der);
    return contents(text);
}

HostIdentity HostIdentity::make()
{
    return {makeKey(), QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper(),
            QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper()};
}

QVariantMap makePairRecord(const HostIdentity &host, const Key &device, const QString &udid)
{
    return {{u"DeviceCertificate"_s, makeCertificate(device, host.key, false)},
            {u"HostCertificate"_s, makeCertificate(host.key, host.key, false)},
            {u"HostPrivateKey"_s, privatePem(host.key)},
            {u"RootCertificate"_s, makeCertificate(host.key, host.key, true)},
            {u"RootPrivateKey"_s, privatePem(host.key)},
            {u"HostID"_s, host.hostId},
            {u"SystemBUID"_s, host.systemBuid},
            {u"UDID"_s, udid}};
}

TlsContext makeTlsContext(const QVariantMap &pairRecord, const Key &device, bool refuse)
{
    const Certificate own = parseCertificate(pairRecord[u"DeviceCertificate"_s].toByteArray());
    Certificate root = parseCertificate(pairRecord[u"RootCertificate"_s].toByteArray());
    TlsContext context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    if (!own || !root || !context)
        return {};
    // Clients of the field sign their pair records with SHA-1, which the usual level turns down.
    SSL_CTX_set_security_level(context.get(), 0);
    SSL_CTX_set_default_read_buffer_len(context.get(), kReadBuffer);
    SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
    SSL_CTX_set_num_tickets(context.get(), 0);
    if (SSL_CTX_use_certificate(context.get(), own.get()) != 1 ||
        SSL_CTX_use_PrivateKey(context.get(), device.get()) != 1)
        return {};
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    SSL_CTX_set_cert_verify_callback(context.get(), verify, context.get());
    if (!refuse)
        SSL_CTX_set_ex_data(context.get(), rootIndex(), root.release());
    return context;
}
