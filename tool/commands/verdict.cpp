#include "tool/commands/verdict.h"

#include "tool/chip/storedcertificate.h"
#include "tool/commands/chipreport.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

const char* nameOf(TrustCheck::Result result)
{
    switch (result) {
    case TrustCheck::Result::Passed:
        return "passed";
    case TrustCheck::Result::Failed:
        return "failed";
    case TrustCheck::Result::Skipped:
        break;
    }
    return "skipped";
}

std::string textOf(const TrustCheck& check)
{
    switch (check.result) {
    case TrustCheck::Result::Passed:
        return "ok: " + check.found;
    case TrustCheck::Result::Failed:
        return std::string(check.cause) + ": " + check.found;
    case TrustCheck::Result::Skipped:
        break;
    }
    return check.found;
}

TrustCheck checkSignature(const Evidence& evidence)
{
    const auto flaw =
        findFlaw(evidence.generation, evidence.certificate.publicKey(), evidence.challenge, evidence.signature);
    if (!flaw)
        return {"signature", TrustCheck::Result::Passed, nullptr, "made with the certificate's key", nullptr};
    return failedCheck(*flaw);
}

void addChecks(Report& report, const TrustReport& examination)
{
    auto checks = nlohmann::ordered_json::array();
    for (const TrustCheck& check : examination.checks) {
        report.text("check " + std::string(check.name), textOf(check));
        checks.push_back({{"name", check.name},
                          {"result", nameOf(check.result)},
                          {"cause", check.cause == nullptr ? nlohmann::ordered_json() : check.cause},
                          {"found", check.found}});
    }
    report.json("checks", checks).json("chain", examination.chain);
}

std::string resultOf(const TrustReport& examination)
{
    if (examination.failure() != nullptr)
        return "NOT AUTHENTIC";
    const std::string result = "authentic: the chip holds the key of its certificate";
    if (examination.chain.size() == 1)
        return result + ", which is itself among the trusted issuers";
    return examination.chain.empty() ? result : result + ", which a trusted issuer vouches for";
}

/// What each of the failed checks found, and what to do about it.
Failure failureOf(const TrustReport& examination, const std::string& tried)
{
    const TrustCheck& first = *examination.failure();
    int count = 0;
    std::string all;
    std::string next;
    for (const TrustCheck& check : examination.checks) {
        if (check.result != TrustCheck::Result::Failed)
            continue;
        ++count;
        all += "\n" + std::string(check.name) + ": " + check.found;
        if (next.find(check.next) == std::string::npos)
            next += (next.empty() ? "" : "\n") + std::string(check.next);
    }
    const std::string one = ": " + first.found;
    return {first.cause, tried,
            "Not authentic" + (count == 1 ? one : ", " + std::to_string(count) + " checks failed:" + all), next};
}

} // namespace

TrustReport examine(const Evidence& evidence, const Trust& trust)
{
    TrustReport examination = trust.examine(evidence.certificate);
    examination.checks.insert(examination.checks.begin(), checkSignature(evidence));
    return examination;
}

TrustCheck failedCheck(const SignatureFlaw& flaw)
{
    return {"signature", TrustCheck::Result::Failed, flaw.cause, flaw.found,
            "Try again. If it fails again, do not trust this accessory."};
}

void requireSameCertificate(Chip& chip, const Bytes& stored, const ChipLocation& location)
{
    if (const auto difference = findDifference(stored, chip.certificate()))
        throw Failure(difference->cause, "read the certificate of the chip on " + describe(location), difference->found,
                      difference->next);
}

void addVerdict(Report& report, const Evidence& evidence, const TrustReport& examination)
{
    report.row("subject", "subject", evidence.certificate.subject())
        .row("issuer", "issuer", evidence.certificate.issuer())
        .row("serial", "serial", evidence.certificate.serial())
        .row("key", "key", evidence.certificate.keyDescription())
        .hexRow("challenge", "challenge", evidence.challenge)
        .hexRow("signature", "signature", evidence.signature);
    addChecks(report, examination);
    report.text("result", resultOf(examination)).json("authentic", examination.failure() == nullptr);
}

void answer(const CommandContext& context, Report& report, const TrustReport& examination, const std::string& tried)
{
    if (examination.failure() == nullptr)
        return context.print(report);
    Failure failure = failureOf(examination, tried);
    report.json("failure", failure.json());
    context.print(report);
    throw failure.afterAnswer();
}

} // namespace VorelKestrel::Tool
