// Certificates: certificate authorities of a test, and certificates that they sign.
#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>

// A certificate and its key, as PEM.
struct SignedPair {
    std::string certificate;
    std::string key;
};

class CertificateAuthority {
public:
    CertificateAuthority()
        : key_(EVP_EC_gen("P-256"), EVP_PKEY_free),
          certificate_(make("test authority", key_.get(), nullptr, 3600))
    {
    }

    std::string pem() const { return toPem(certificate_.get()); }

    /// Returns a certificate for 127.0.0.1.
    /// range   `seconds` below 0: the certificate has expired.
    SignedPair sign(char const* name, long seconds = 3600) const
    {
        Key const key(EVP_EC_gen("P-256"), EVP_PKEY_free);
        Certificate const certificate = make(name, key.get(), certificate_.get(), seconds);
        Bio const out(BIO_new(BIO_s_mem()), BIO_free);
        PEM_write_bio_PrivateKey(out.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr);
        return {toPem(certificate.get()), toString(out.get())};
    }

private:
    using Key = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)>;
    using Certificate = std::unique_ptr<X509, void (*)(X509*)>;
    using Bio = std::unique_ptr<BIO, int (*)(BIO*)>;

    // Without an issuer, the certificate of the authority itself.
    Certificate make(char const* name, EVP_PKEY* key, X509* issuer, long seconds) const
    {
        Certificate made(X509_new(), X509_free);
        X509_set_version(made.get(), X509_VERSION_3);
        ASN1_INTEGER_set(X509_get_serialNumber(made.get()), ++serial_);
        X509_gmtime_adj(X509_getm_notBefore(made.get()), -7200);
        X509_gmtime_adj(X509_getm_notAfter(made.get()), seconds);
        X509_set_pubkey(made.get(), key);
        X509_NAME_add_entry_by_txt(X509_get_subject_name(made.get()), "CN", MBSTRING_ASC,
                                   reinterpret_cast<unsigned char const*>(name), -1, -1, 0);
        X509_set_issuer_name(made.get(),
                             X509_get_subject_name(issuer == nullptr ? made.get() : issuer));
        addExtension(made.get(), NID_basic_constraints,
                     issuer == nullptr ? "critical,CA:TRUE" : "critical,CA:FALSE");
        if (issuer != nullptr)
            addExtension(made.get(), NID_subject_alt_name, "IP:127.0.0.1");
        X509_sign(made.get(), key_.get(), EVP_sha256());
        return made;
    }

    static void addExtension(X509* certificate, int kind, char const* value)
    {
        X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value);
        X509_add_ext(certificate, extension, -1);
        X509_EXTENSION_free(extension);
    }

    static std::string toPem(X509* certificate)
    {
        Bio const out(BIO_new(BIO_s_mem()), BIO_free);
        PEM_write_bio_X509(out.get(), certificate);
        return toString(out.get());
    }

    static std::string toString(BIO* bio)
    {
        char* bytes = nullptr;
        long const length = BIO_get_mem_data(bio, &bytes);
        return {bytes, static_cast<size_t>(length)};
    }

    mutable long serial_ = 0;
    Key const key_;
    Certificate const certificate_;
};
