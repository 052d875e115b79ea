#ifndef TOOL_DOCTOR_EXCHANGE_H
#define TOOL_DOCTOR_EXCHANGE_H

#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "common/bytes.h"
#include "common/generations.h"
#include "tool/doctor/examination.h"
#include "tool/doctor/patientbus.h"

namespace VorelKestrel::Tool {

/// The cause of a chip that answered, and answers no more.
constexpr char kChipGone[] = "chip gone";

/// An exchange with the chip ended early, for a reason that is a finding.
class ExchangeStopped : public std::exception
{
public:
    explicit ExchangeStopped(Finding finding) : m_finding(std::move(finding)) {}

    const Finding& finding() const { return m_finding; }
    const char* what() const noexcept override { return m_finding.found.c_str(); }

private:
    Finding m_finding;
};

/**
 * The library's exchanges, message by message, so that what goes wrong is told of the message at which it does.
 *
 * Errors: ExchangeStopped.
 */
class Exchange
{
public:
    /// Requires: the chip answers. @p examination stays the caller's and outlives this.
    explicit Exchange(Examination& examination);

    /// The certificate as it is stored.
    Bytes certificate(const Generation& generation);
    /// Requires: a challenge of the generation's length.
    Bytes signature(const Generation& generation, const Bytes& challenge);
    /// The challenge that the chip holds, as long as the one that was sent; none if the chip does not deliver it.
    std::optional<Bytes> heldChallenge(std::size_t length);

private:
    /// What a register delivered.
    struct Reading
    {
        std::uint8_t reg;
        std::string what;
        Bytes content;
    };

    Bytes read(std::uint8_t reg, std::size_t length, const std::string& what);
    std::size_t readLength(std::uint8_t reg, const std::string& what);
    void requireCounted(const Bytes& challenge);
    Bytes readSignature(const Generation& generation);
    /// Stops at what a register delivered. If it is right when it is read again, that is the finding.
    [[noreturn]] void stopAt(const Reading& reading, const std::function<bool(const Bytes&)>& isRight,
                             const Finding& finding);
    void write(std::uint8_t reg, const Bytes& data, const std::string& what);
    void requireSigned(const Generation& generation);
    Finding explainSilence();
    bool hasForgottenTheChallenge(const Generation& generation);
    bool showsChallengeLength(std::size_t length);
    bool isGone();
    [[noreturn]] void stop(const Access& access, std::uint8_t reg, std::size_t length, const std::string& tried);

    Examination& m_examination;
    PatientBus m_bus;
};

} // namespace VorelKestrel::Tool

#endif
