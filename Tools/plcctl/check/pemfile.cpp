#include "check/pemfile.h"

#include <chrono>
#include <ctime>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>

namespace plcctl::check {

namespace {

struct BioDeleter
{
    void operator()(BIO* bio) const { BIO_free(bio); }
};
using Bio = std::unique_ptr<BIO, BioDeleter>;

Bio bioOf(const QByteArray& text)
{
    return Bio(BIO_new_mem_buf(text.constData(), text.size()));
}

// Nobody is asked at the terminal.
int refusePassphrase(char* /*buffer*/, int /*size*/, int /*isWriting*/, void* /*argument*/)
{
    return -1;
}

// By the calendar, since the C library's times end in 2038 on 32-bit processors, and authorities are good for longer.
std::int64_t secondsOf(const ASN1_TIME* time)
{
    std::tm broken = {};
    if (time == nullptr || ASN1_TIME_to_tm(time, &broken) != 1)
        return 0;
    const std::chrono::year_month_day date{std::chrono::year(broken.tm_year + 1900),
                                           std::chrono::month(static_cast<unsigned>(broken.tm_mon + 1)),
                                           std::chrono::day(static_cast<unsigned>(broken.tm_mday))};
    const std::chrono::seconds clock =
        std::chrono::hours(broken.tm_hour) + std::chrono::minutes(broken.tm_min) + std::chrono::seconds(broken.tm_sec);
    return (std::chrono::sys_days(date).time_since_epoch() + clock).count();
}

} // namespace

std::vector<Certificate> certificatesIn(const QByteArray& pem)
{
    std::vector<Certificate> result;
    const Bio bio = bioOf(pem);
    while (X509* certificate = PEM_read_bio_X509(bio.get(), nullptr, refusePassphrase, nullptr))
        result.emplace_back(certificate);
    ERR_clear_error();
    return result;
}

Key privateKeyIn(const QByteArray& pem)
{
    Key key(PEM_read_bio_PrivateKey(bioOf(pem).get(), nullptr, refusePassphrase, nullptr));
    ERR_clear_error();
    return key;
}

bool wantsPassphrase(const QByteArray& pem)
{
    return pem.contains("-----BEGIN ENCRYPTED") || pem.contains("Proc-Type:");
}

std::int64_t notBefore(const X509& certificate)
{
    return secondsOf(X509_get0_notBefore(&certificate));
}

std::int64_t notAfter(const X509& certificate)
{
    return secondsOf(X509_get0_notAfter(&certificate));
}

std::string subjectOf(const X509& certificate)
{
    const Bio bio(BIO_new(BIO_s_mem()));
    X509_NAME_print_ex(bio.get(), X509_get_subject_name(&certificate), 0, XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB);
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return size > 0 ? std::string(text, static_cast<std::size_t>(size)) : std::string();
}

} // namespace plcctl::check
