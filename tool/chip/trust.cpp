#include "tool/chip/trust.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <new>
#include <set>
#include <system_error>
#include <utility>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include "common/filecontent.h"
#include "common/generations.h"
#include "common/opensslpointer.h"
#include "tool/chip/knowncontent.h"
#include "tool/report/failure.h"
#include "tool/report/filledin.h"
#include "tool/report/utctime.h"

namespace VorelKestrel::Tool {
namespace {

using StoreContextPointer = OpensslPointer<X509_STORE_CTX, X509_STORE_CTX_free>;
using CrlPointer = OpensslPointer<X509_CRL, X509_CRL_free>;
using X509Pointer = OpensslPointer<X509, X509_free>;

constexpr char kCertificate[] = "certificate";
constexpr char kIssuer[] = "issuer";
constexpr char kValidity[] = "validity";
constexpr char kRevocation[] = "revocation";
constexpr char kStrength[] = "strength";
constexpr std::time_t kEarliestNow = 1767225600; // 2026-01-01; this program is younger
constexpr int kLongestChain = 5;                 // issuers between the chip's certificate and the trusted one

/// What OpenSSL found wrong, as this tool says it.
struct Fault
{
    int error;
    const char* check;
    const char* cause;
    const char* found; // behind the name of the certificate; {issuer} is the name of the issuer that it names,
                       // {given} those of the given issuers, and {lists} those of the issuers of the given lists
    const char* next;
};

constexpr char kCompareTheIssuer[] =
    "If --issuer names a certificate of the same name with another key, name the right one ('openssl x509 -noout\n"
    "-fingerprint' tells them apart). Otherwise do not trust this accessory.";
constexpr char kFromNobodyGiven[] = "comes from none of the given issuers ({given}): its issuer is {issuer}";
constexpr char kFromANamesake[] =
    "comes from none of the given issuers: the given {issuer} has the name of its issuer, and another key";
constexpr char kNameTheFormerKey[] =
    "If your issuer has renewed its certificate, name that of the chip's series with --issuer, too: the option is\n"
    "repeatable. 'openssl x509 -noout -ext subjectKeyIdentifier,authorityKeyIdentifier' shows which keys belong\n"
    "together. Otherwise do not trust this accessory.";
constexpr char kDoNotTrust[] = "Do not trust this accessory, unless --issuer names the wrong issuers.";
constexpr char kNameTheIssuer[] =
    "If that issuer is yours, or one that your issuer has appointed, name its certificate with --issuer, too: the "
    "option\nis repeatable. Samples, and each generation of the chip, may have an issuer of their own.\n"
    "Otherwise do not trust this accessory.";
constexpr char kSetTheClock[] = "If this board's clock is wrong, set it, or give the time with --at. Without a clock, "
                                "--no-time-check leaves the dates unchecked.";
constexpr char kTheClockIsWrong[] = "Set this board's clock and try again. On a board without a clock, 'authchip "
                                    "authenticate --no-time-check' leaves the\n"
                                    "dates unchecked.";
constexpr char kRevoked[] = "Do not trust this accessory: its issuer has withdrawn the certificate.";
constexpr char kFetchTheList[] = "Fetch the current revocation list of that issuer, and name it with --crl.";

constexpr Fault kFaults[] = {
    {X509_V_ERR_CERT_SIGNATURE_FAILURE, kCertificate, "altered", "does not match its issuer's signature",
     kCompareTheIssuer},
    {X509_V_ERR_UNABLE_TO_DECRYPT_CERT_SIGNATURE, kCertificate, "altered", "does not match its issuer's signature",
     kCompareTheIssuer},
    {X509_V_ERR_UNABLE_TO_DECODE_ISSUER_PUBLIC_KEY, kCertificate, "altered", "has an issuer whose key is unusable",
     kCompareTheIssuer},
    {X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, kIssuer, "self-made", "is signed by its own key, not by an issuer",
     kDoNotTrust},
    {X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN, kIssuer, "unknown issuer", "is none of the given issuers ({given})",
     kNameTheIssuer},
    {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, kIssuer, "unknown issuer", kFromNobodyGiven, kNameTheIssuer},
    {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, kIssuer, "unknown issuer", kFromNobodyGiven, kNameTheIssuer},
    {X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE, kIssuer, "unknown issuer", kFromNobodyGiven, kNameTheIssuer},
    {X509_V_ERR_AKID_SKID_MISMATCH, kIssuer, "unknown issuer", kFromANamesake, kNameTheFormerKey},
    {X509_V_ERR_INVALID_CA, kIssuer, "issuer is no CA", "may not issue certificates: it is no CA", kDoNotTrust},
    {X509_V_ERR_KEYUSAGE_NO_CERTSIGN, kIssuer, "issuer is no CA", "may not issue certificates: its key usage says so",
     kDoNotTrust},
    {X509_V_ERR_PATH_LENGTH_EXCEEDED, kIssuer, "chain too long", "allows no further CA below it", kDoNotTrust},
    {X509_V_ERR_CERT_CHAIN_TOO_LONG, kIssuer, "chain too long", "is at the end of a chain that is too long",
     kDoNotTrust},
    {X509_V_ERR_UNHANDLED_CRITICAL_EXTENSION, kIssuer, "unknown extension", "has a critical extension of unknown kind",
     kDoNotTrust},
    {X509_V_ERR_CERT_NOT_YET_VALID, kValidity, "not yet valid", "is not valid yet", kSetTheClock},
    {X509_V_ERR_CERT_HAS_EXPIRED, kValidity, "expired", "has expired", kSetTheClock},
    {X509_V_ERR_CERT_REVOKED, kRevocation, "revoked", "is revoked", kRevoked},
    {X509_V_ERR_UNABLE_TO_GET_CRL, kRevocation, "no revocation list",
     "has the issuer {issuer}, of which no list is given: the lists are of {lists}", kFetchTheList},
    {X509_V_ERR_CRL_SIGNATURE_FAILURE, kRevocation, "list altered", "has a list that does not match its signature",
     kFetchTheList},
    {X509_V_ERR_CRL_NOT_YET_VALID, kRevocation, "list not yet valid", "has a list that is not valid yet", kSetTheClock},
    {X509_V_ERR_CRL_HAS_EXPIRED, kRevocation, "list expired", "has a list that has expired", kFetchTheList},
};

const Fault* findFault(int error)
{
    const auto* end = std::end(kFaults);
    const auto* fault = std::find_if(std::begin(kFaults), end, [&](const Fault& each) { return each.error == error; });
    return fault == end ? nullptr : fault;
}

/// What went wrong with one certificate of the chain.
struct FoundFault
{
    int error;
    std::string subject;
    std::string issuer;
};

void releaseCertificates(STACK_OF(X509) * certificates)
{
    sk_X509_pop_free(certificates, X509_free);
}

int indexOfFaults()
{
    static const int index = X509_STORE_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
    return index;
}

using CertificatesPointer = OpensslPointer<STACK_OF(X509), releaseCertificates>;

/// If no issuer was found: why one of the issuer's name is not the issuer, if there is one. OpenSSL does not tell.
int explainMissingIssuer(X509_STORE_CTX* context, X509* certificate)
{
    const int error = X509_STORE_CTX_get_error(context);
    const Fault* fault = findFault(error);
    if (certificate == nullptr || fault == nullptr || fault->found != kFromNobodyGiven)
        return error;
    const CertificatesPointer namesakes(X509_STORE_CTX_get1_certs(context, X509_get_issuer_name(certificate)));
    for (int i = 0; i < sk_X509_num(namesakes.get()); ++i) {
        if (X509_check_issued(sk_X509_value(namesakes.get(), i), certificate) == X509_V_ERR_AKID_SKID_MISMATCH)
            return X509_V_ERR_AKID_SKID_MISMATCH; // the two name different keys
    }
    return error;
}

/// Notes each fault and goes on, so that every check gets its own answer.
int noteFault(int isGood, X509_STORE_CTX* context)
{
    if (isGood != 1) {
        auto* faults = static_cast<std::vector<FoundFault>*>(X509_STORE_CTX_get_ex_data(context, indexOfFaults()));
        X509* certificate = X509_STORE_CTX_get_current_cert(context);
        const std::string subject = certificate != nullptr ? nameAsText(X509_get_subject_name(certificate)) : "";
        const std::string issuer = certificate != nullptr ? nameAsText(X509_get_issuer_name(certificate)) : "";
        faults->push_back({explainMissingIssuer(context, certificate), subject, issuer});
    }
    return 1;
}

[[noreturn]] void failReading(const std::string& path, const std::string& why, const char* next)
{
    ERR_clear_error();
    throw Failure(kWrongUsage, "read " + path, why, next);
}

Bytes contentOf(const std::string& path)
{
    constexpr std::size_t kLongest = std::size_t{64} << 20U; // the lists of a large issuer have some MiB
    FileContent content = readFile(path, kLongest);
    if (content.error != 0)
        failReading(path, describeSystemError(content.error), "Name a file that can be read.");
    if (content.isTooLong)
        failReading(path, "It is longer than 64 MiB", "Name a file of certificates or revocation lists.");
    return std::move(content.bytes);
}

/// After reading PEM: whether nothing more is there, rather than something damaged.
bool isAtTheEnd()
{
    const unsigned long error = ERR_peek_last_error();
    return ERR_GET_LIB(error) == ERR_LIB_PEM && ERR_GET_REASON(error) == PEM_R_NO_START_LINE;
}

/// Calls @p use with every object in what a file holds: one in DER, or all in PEM. Returns how many there were.
template<typename Pointer, auto readPem, auto readDer, typename Use>
int forEachIn(const Bytes& content, const std::string& path, Use use)
{
    int count = 0;
    ERR_clear_error();
    const BioPointer pem = readerOf(content);
    while (const Pointer object{readPem(pem.get(), nullptr, nullptr, nullptr)}) {
        use(object.get());
        ++count;
    }
    if (!isAtTheEnd())
        failReading(path, "Entry " + std::to_string(count + 1) + " in it is damaged",
                    "Fetch the file again, or take the damaged part out of it.");
    if (count == 0) {
        const BioPointer der = readerOf(content);
        if (const Pointer object{readDer(der.get(), nullptr)}) {
            use(object.get());
            ++count;
        }
    }
    ERR_clear_error(); // the end of a file is an error to OpenSSL
    return count;
}

int addCertificates(X509_STORE* store, const Bytes& content, const std::string& path)
{
    return forEachIn<X509Pointer, PEM_read_bio_X509, d2i_X509_bio>(
        content, path, [store](X509* certificate) { X509_STORE_add_cert(store, certificate); });
}

int addFolder(X509_STORE* store, const std::filesystem::path& folder)
{
    int count = 0;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->is_regular_file(error)) {
            const std::string path = entry->path().string();
            count += addCertificates(store, contentOf(path), path);
        }
    }
    if (error)
        failReading(folder.string(), describeSystemError(error.value()), "Name a folder that can be read.");
    return count;
}

constexpr char kNoCertificate[] = "It holds no certificate, neither in PEM nor in DER";
constexpr char kNameIssuers[] = "Name a file with the issuers' certificates, or a folder of such files.";

void addIssuersIn(X509_STORE* store, const std::string& folder)
{
    if (addFolder(store, folder) > 0)
        return;
    std::error_code error;
    if (std::filesystem::is_empty(folder, error))
        failReading(folder, "The folder is empty", "Put the issuers' certificates there, in PEM or DER.");
    failReading(folder, kNoCertificate, kNameIssuers);
}

void addIssuersOf(X509_STORE* store, const std::string& path)
{
    const Bytes content = contentOf(path);
    if (content.empty())
        failReading(path, "The file is empty", "Copy the issuers' certificates there again, in PEM or DER.");
    if (addCertificates(store, content, path) > 0)
        return;
    if (const KnownContent* other = recognise(content))
        failReading(path,
                    other->isDamagedIssuer ? "The lines around its certificate are damaged"
                                           : "It holds " + std::string(other->name) + ", and no certificate",
                    other->inPlaceOfIssuer);
    failReading(path, kNoCertificate, kNameIssuers);
}

void addIssuers(X509_STORE* store, const std::string& path)
{
    std::error_code error;
    if (std::filesystem::is_directory(path, error))
        addIssuersIn(store, path);
    else
        addIssuersOf(store, path);
}

void addRevocationLists(X509_STORE* store, const std::string& path)
{
    const Bytes content = contentOf(path);
    const int count = forEachIn<CrlPointer, PEM_read_bio_X509_CRL, d2i_X509_CRL_bio>(
        content, path, [store](X509_CRL* list) { X509_STORE_add_crl(store, list); });
    if (count > 0)
        return;
    if (const KnownContent* other = recognise(content))
        failReading(path, "It holds " + std::string(other->name) + ", and no revocation list",
                    "Name a file with the issuers' revocation lists; certificates of issuers go with --issuer.");
    failReading(path, "It holds no revocation list, neither in PEM nor in DER",
                "Name a file with the issuers' revocation lists.");
}

unsigned long flagsOf(const TrustOptions& options)
{
    // An intermediate issuer may be trusted without the root above it.
    unsigned long flags = X509_V_FLAG_PARTIAL_CHAIN | X509_V_FLAG_CHECK_SS_SIGNATURE;
    if (!options.revocationLists.empty())
        flags |= X509_V_FLAG_CRL_CHECK;
    if (!options.checksTime)
        flags |= X509_V_FLAG_NO_CHECK_TIME;
    return flags;
}

// OpenSSL's measure: 80 bits are RSA-1024, 112 are RSA-2048 and P-224; digests count less: SHA-1 has 63, MD5 39.
constexpr int kLeastKeySecurity = 80;
constexpr int kLeastDigestSecurity = 63;
constexpr int kUsualSecurity = 112;

/// How strong the key of a certificate and the digest of its signature are.
struct Strength
{
    explicit Strength(X509* certificate) : key(X509_get0_pubkey(certificate))
    {
        int digest = NID_undef;
        if (X509_get_signature_info(certificate, &digest, nullptr, &digestSecurity, nullptr) == 1 &&
            digest != NID_undef)
            digestName = OBJ_nid2sn(digest);
        if (key != nullptr)
            keySecurity = EVP_PKEY_get_security_bits(key);
        ERR_clear_error();
    }
    bool isAccepted() const { return keySecurity >= kLeastKeySecurity && digestSecurity >= kLeastDigestSecurity; }
    bool isUsual() const { return keySecurity >= kUsualSecurity && digestSecurity >= kUsualSecurity; }

    EVP_PKEY* key;
    int keySecurity = 0;
    int digestSecurity = 0;
    std::string digestName = "an unknown digest";
};

std::string describe(const Strength& strength)
{
    return describeKey(strength.key) + ", signed with " + strength.digestName;
}

TrustCheck checkStrength(const std::vector<X509*>& chain)
{
    std::string belowUsual;
    for (X509* certificate : chain) {
        const Strength strength(certificate);
        const std::string found = nameAsText(X509_get_subject_name(certificate)) + " has " + describe(strength);
        if (!strength.isAccepted())
            return {kStrength, TrustCheck::Result::Failed, "too weak", found, kDoNotTrust};
        if (!strength.isUsual() && belowUsual.empty())
            belowUsual = found + ": accepted, but below RSA-2048 and SHA-256";
    }
    const std::string found = belowUsual.empty() ? describe(Strength(chain.front())) : belowUsual;
    return {kStrength, TrustCheck::Result::Passed, nullptr, found, nullptr};
}

/// A configuration that activates no provider leaves OpenSSL without keys, and every genuine chip without a good
/// signature.
void requireKeys()
{
    using KeysPointer = OpensslPointer<EVP_KEYMGMT, EVP_KEYMGMT_free>;
    for (const char* type : {kGeneration20B.keyType, kGeneration30.keyType}) {
        const KeysPointer keys(EVP_KEYMGMT_fetch(nullptr, type, nullptr));
        ERR_clear_error();
        if (!keys)
            throw Failure("not installed whole", "verify with OpenSSL",
                          "OpenSSL has no " + std::string(type) +
                              " keys here: its configuration activates no provider "
                              "that has them",
                          "'openssl list -providers' shows those that are active. Mend the configuration that "
                          "OPENSSL_CONF names, or unset it.");
    }
}

/// What OpenSSL says about a chain.
struct Verdict
{
    std::vector<FoundFault> faults;
    std::vector<X509*> chain; // borrowed from the context
    std::string given;        // the names of the given issuers ...
    std::string lists;        // ... and of the issuers of the given lists
};

/// "CN=One; CN=Two": the first few names.
std::string listed(const std::set<std::string>& names)
{
    constexpr std::size_t kMost = 4;
    std::string text;
    std::size_t count = 0;
    for (const std::string& name : names) {
        if (++count > kMost)
            return text + " and " + std::to_string(names.size() - kMost) + " more";
        text += (count == 1 ? "" : "; ") + name;
    }
    return text;
}

void nameWhatIsGiven(Verdict& verdict, X509_STORE* store)
{
    std::set<std::string> issuers;
    std::set<std::string> lists;
    const STACK_OF(X509_OBJECT)* objects = X509_STORE_get0_objects(store);
    for (int i = 0; i < sk_X509_OBJECT_num(objects); ++i) {
        X509_OBJECT* object = sk_X509_OBJECT_value(objects, i);
        if (const X509* issuer = X509_OBJECT_get0_X509(object))
            issuers.insert(nameAsText(X509_get_subject_name(issuer)));
        if (const X509_CRL* list = X509_OBJECT_get0_X509_CRL(object))
            lists.insert(nameAsText(X509_CRL_get_issuer(list)));
    }
    verdict.given = listed(issuers);
    verdict.lists = listed(lists);
}

/// The certificates of a chip's container, for the time of one verification. It owns none of them.
class Companions
{
public:
    explicit Companions(const Certificate& certificate) : m_stack(sk_X509_new_null())
    {
        if (m_stack == nullptr)
            throw std::bad_alloc();
        for (const auto& each : certificate.companions())
            sk_X509_push(m_stack, each.get());
    }
    ~Companions() { sk_X509_free(m_stack); }
    Companions(const Companions&) = delete;
    Companions& operator=(const Companions&) = delete;

    STACK_OF(X509) * get() const { return m_stack; }

private:
    STACK_OF(X509) * m_stack;
};

void setTerms(X509_STORE_CTX* context, const TrustOptions& options)
{
    X509_VERIFY_PARAM* terms = X509_STORE_CTX_get0_param(context);
    X509_VERIFY_PARAM_set_flags(terms, flagsOf(options));
    X509_VERIFY_PARAM_set_depth(terms, kLongestChain);
    if (options.checksTime) // a time would have the dates checked
        X509_VERIFY_PARAM_set_time(terms, options.at.value_or(options.clock(nullptr)));
}

Verdict verify(X509_STORE_CTX* context)
{
    Verdict verdict;
    X509_STORE_CTX_set_ex_data(context, indexOfFaults(), &verdict.faults);
    X509_STORE_CTX_set_verify_cb(context, noteFault);
    const bool isGood = X509_verify_cert(context) == 1;
    if (!isGood && verdict.faults.empty()) // it gave up without asking
        verdict.faults.push_back({X509_STORE_CTX_get_error(context), "", ""});
    const STACK_OF(X509)* chain = X509_STORE_CTX_get0_chain(context);
    for (int i = 0; i < sk_X509_num(chain); ++i)
        verdict.chain.push_back(sk_X509_value(chain, i));
    ERR_clear_error();
    return verdict;
}

/// A check that passes with @p good unless one of the faults is about it.
TrustCheck judge(const char* name, const Verdict& verdict, const std::string& good)
{
    for (const FoundFault& each : verdict.faults) {
        const Fault* fault = findFault(each.error);
        if (fault != nullptr && fault->check == name)
            return {name, TrustCheck::Result::Failed, fault->cause,
                    each.subject + " " +
                        filledIn(fault->found,
                                 {{"{issuer}", each.issuer}, {"{given}", verdict.given}, {"{lists}", verdict.lists}}),
                    fault->next};
        if (fault == nullptr && name == kIssuer)
            return {name, TrustCheck::Result::Failed, "not trusted",
                    each.subject + ": " + X509_verify_cert_error_string(each.error), kDoNotTrust};
    }
    return {name, TrustCheck::Result::Passed, nullptr, good, nullptr};
}

TrustCheck skipped(const char* name, const char* why)
{
    return {name, TrustCheck::Result::Skipped, nullptr, why, nullptr};
}

bool isSelfIssued(const Certificate& certificate)
{
    return X509_NAME_cmp(X509_get_subject_name(certificate.x509()), X509_get_issuer_name(certificate.x509())) == 0;
}

/// Whether the dates fit; if they do not because of a clock that was never set, that is what is wrong.
TrustCheck checkValidity(TrustReport& report, const Verdict& verdict, const TrustOptions& options,
                         const std::string& good)
{
    TrustCheck check = judge(kValidity, verdict, good);
    const std::time_t now = options.clock(nullptr);
    const bool isByTheClock = check.result == TrustCheck::Result::Failed && !options.at;
    report.isClockWrong = isByTheClock && now < kEarliestNow;
    if (isByTheClock && !report.isClockWrong)
        check.found += "; this board's clock says " + dateAndTime(now) + "Z";
    if (report.isClockWrong) {
        check.found += "; this board's clock says " + dateAndTime(now) + "Z, which cannot be";
        check.next = kTheClockIsWrong;
    }
    return check;
}

/// Whether the signature under the certificate is good, as far as the signer is known.
TrustCheck checkCertificate(const Certificate& certificate, const Verdict& verdict)
{
    if (verdict.chain.size() > 1)
        return judge(kCertificate, verdict, "matches its issuer's signature");
    return isSelfIssued(certificate) ? judge(kCertificate, verdict, "matches its own signature")
                                     : skipped(kCertificate, "not checked: its issuer is not given");
}

/// Who vouches for the certificate; nobody, if the signature under it is not the issuer's.
TrustCheck checkIssuer(const TrustCheck& certificate, const Verdict& verdict)
{
    if (certificate.result == TrustCheck::Result::Failed)
        return skipped(kIssuer, "not checked: the certificate does not match the signature of its issuer");
    if (verdict.chain.size() == 1)
        return judge(kIssuer, verdict, "is itself among the given issuers: that trusts this one chip, and no other");
    const std::string trusted = verdict.chain.empty() ? "" : nameAsText(X509_get_subject_name(verdict.chain.back()));
    return judge(kIssuer, verdict, "vouched for by " + trusted);
}

} // namespace

const TrustCheck* TrustReport::failure() const
{
    const auto failed = std::find_if(checks.begin(), checks.end(), [](const TrustCheck& check) {
        return check.result == TrustCheck::Result::Failed;
    });
    return failed == checks.end() ? nullptr : &*failed;
}

Trust::Trust(TrustOptions options) : m_options(std::move(options)), m_store(X509_STORE_new(), X509_STORE_free)
{
    if (!m_store)
        throw std::bad_alloc();
    requireKeys();
    for (const std::string& path : m_options.issuers)
        addIssuers(m_store.get(), path);
    for (const std::string& path : m_options.revocationLists)
        addRevocationLists(m_store.get(), path);
}

TrustReport Trust::examine(const Certificate& certificate) const
{
    const Companions companions(certificate);
    const StoreContextPointer context(X509_STORE_CTX_new());
    if (!context || X509_STORE_CTX_init(context.get(), m_store.get(), certificate.x509(), companions.get()) != 1)
        throw std::bad_alloc();
    setTerms(context.get(), m_options);
    Verdict verdict = verify(context.get());
    nameWhatIsGiven(verdict, m_store.get());

    TrustReport report;
    const bool knowsIssuers = !m_options.issuers.empty();
    const TrustCheck match = checkCertificate(certificate, verdict);
    report.checks.push_back(match);
    report.checks.push_back(knowsIssuers ? checkIssuer(match, verdict)
                                         : skipped(kIssuer, "not checked: no --issuer given"));
    report.checks.push_back(m_options.checksTime
                                ? checkValidity(report, verdict, m_options, "until " + certificate.notAfter())
                                : skipped(kValidity, "not checked: --no-time-check"));
    report.checks.push_back(m_options.revocationLists.empty() ? skipped(kRevocation, "not checked: no --crl given")
                                                              : judge(kRevocation, verdict, "not revoked"));
    report.checks.push_back(
        checkStrength(knowsIssuers && !verdict.chain.empty() ? verdict.chain : std::vector<X509*>{certificate.x509()}));
    if (knowsIssuers) {
        for (const X509* each : verdict.chain)
            report.chain.push_back(nameAsText(X509_get_subject_name(each)));
    }
    return report;
}

} // namespace VorelKestrel::Tool
