#include "archive/ProjectNames.hpp"

#include <unicode/normalizer2.h>
#include <unicode/regex.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <charconv>
#include <memory>

namespace quillstow::projectnames {

namespace {

std::unique_ptr<icu::RegexMatcher> matcherFor(std::string_view pattern,
                                              const icu::UnicodeString& text) {
    UErrorCode status = U_ZERO_ERROR;
    auto matcher = std::make_unique<icu::RegexMatcher>(
        icu::UnicodeString::fromUTF8(icu::StringPiece(pattern.data(), int32_t(pattern.size()))),
        text, UREGEX_CASE_INSENSITIVE, status);
    if (U_FAILURE(status)) return nullptr;
    return matcher;
}

icu::UnicodeString unicode(std::string_view text) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), int32_t(text.size())));
}

std::string utf8(const icu::UnicodeString& text) {
    std::string result;
    text.toUTF8String(result);
    return result;
}

// An expression that can't be compiled, or a capture that can't be read, is no match.
std::optional<std::string> firstCapture(std::string_view pattern, const icu::UnicodeString& text) {
    const auto matcher = matcherFor(pattern, text);
    UErrorCode status = U_ZERO_ERROR;
    if (!matcher || !matcher->find(0, status) || U_FAILURE(status)) return std::nullopt;
    const icu::UnicodeString group = matcher->group(1, status);
    if (U_FAILURE(status)) return std::nullopt;
    return utf8(group);
}

bool matches(std::string_view pattern, const icu::UnicodeString& text) {
    const auto matcher = matcherFor(pattern, text);
    UErrorCode status = U_ZERO_ERROR;
    return matcher && matcher->find(0, status) && U_SUCCESS(status);
}

icu::UnicodeString replacingAll(const icu::UnicodeString& text, std::string_view pattern,
                                const char* replacement) {
    const auto matcher = matcherFor(pattern, text);
    if (!matcher) return text;
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString result = matcher->replaceAll(icu::UnicodeString(replacement), status);
    return U_FAILURE(status) ? text : result;
}

bool isSpace(UChar32 character) {
    return character == '\t' || u_charType(character) == U_SPACE_SEPARATOR;
}

icu::UnicodeString trimmed(const icu::UnicodeString& text) {
    int32_t start = 0;
    int32_t end = text.length();
    while (start < end && isSpace(text.char32At(start)))
        start = text.moveIndex32(start, 1);
    while (end > start) {
        const int32_t previous = text.moveIndex32(end, -1);
        if (!isSpace(text.char32At(previous))) break;
        end = previous;
    }
    return text.tempSubStringBetween(start, end);
}

std::optional<int> yearInRange(const std::optional<std::string>& digits, int offset) {
    if (!digits) return std::nullopt;
    int value = 0;
    const auto [end, error] =
        std::from_chars(digits->data(), digits->data() + digits->size(), value);
    if (error != std::errc() || end != digits->data() + digits->size()) return std::nullopt;
    value += offset;
    if (value < earliestYear || value > latestYear) return std::nullopt;
    return value;
}

}  // namespace

std::string canonicalKey(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* composition = icu::Normalizer2::getNFCInstance(status);
    if (U_FAILURE(status)) return std::string(text);
    const icu::UnicodeString unicodeText = unicode(text);
    if (composition->isNormalized(unicodeText, status) && U_SUCCESS(status)) {
        return std::string(text);
    }
    status = U_ZERO_ERROR;
    const icu::UnicodeString composed = composition->normalize(unicodeText, status);
    return U_FAILURE(status) ? std::string(text) : utf8(composed);
}

std::string trimmedOfSpaces(std::string_view name) {
    return utf8(trimmed(unicode(name)));
}

std::string tidiedName(std::string_view name) {
    icu::UnicodeString text = replacingAll(unicode(name), "[:/]", "-");
    text = replacingAll(text, "\\s+", " ");
    return utf8(trimmed(text));
}

std::vector<ProjectNameProblem> problemsOf(std::string_view name) {
    const icu::UnicodeString text = unicode(name);
    std::vector<ProjectNameProblem> problems;
    if (trimmed(text) != text) problems.push_back(ProjectNameProblem::surroundingWhitespace);
    if (matches("\\s{2,}", text)) problems.push_back(ProjectNameProblem::repeatedSpaces);
    if (name.find_first_of(":/") != std::string_view::npos) {
        problems.push_back(ProjectNameProblem::awkwardCharacters);
    }
    return problems;
}

std::optional<int> suggestedYear(std::string_view name) {
    const icu::UnicodeString text = unicode(name);
    if (auto year = yearInRange(firstCapture("\\b(20\\d{2})\\b", text), 0)) return year;
    constexpr std::string_view seasonCodes[] = {
        "\\b(?:spring|summer|fall|autumn|winter|holiday|resort|cruise|pre-fall)\\s*(\\d{2})\\b",
        "\\b(?:sp|su|fa|fw|ss|ho|pf|cr)\\s?(\\d{2})\\b",
    };
    for (const auto pattern : seasonCodes) {
        if (auto year = yearInRange(firstCapture(pattern, text), 2000)) return year;
    }
    return std::nullopt;
}

}  // namespace quillstow::projectnames
