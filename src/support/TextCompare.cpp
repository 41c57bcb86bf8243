#include "support/TextCompare.hpp"

#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/ucol.h>
#include <unicode/unistr.h>

#include <memory>

namespace quillstow::text {

namespace {

struct CollatorCloser {
    void operator()(UCollator* collator) const { ucol_close(collator); }
};

// A collator is not to be shared between threads: each thread makes its own once.
UCollator* finderCollator() {
    thread_local const std::unique_ptr<UCollator, CollatorCloser> collator = [] {
        UErrorCode status = U_ZERO_ERROR;
        UCollator* made = ucol_open("", &status);
        if (U_FAILURE(status)) return std::unique_ptr<UCollator, CollatorCloser>();
        ucol_setStrength(made, UCOL_SECONDARY);
        ucol_setAttribute(made, UCOL_NUMERIC_COLLATION, UCOL_ON, &status);
        return std::unique_ptr<UCollator, CollatorCloser>(made);
    }();
    return collator.get();
}

}  // namespace

int compareInFinderOrder(std::string_view a, std::string_view b) {
    UCollator* collator = finderCollator();
    UErrorCode status = U_ZERO_ERROR;
    if (collator) {
        const UCollationResult result = ucol_strcollUTF8(collator, a.data(), std::int32_t(a.size()),
                                                         b.data(), std::int32_t(b.size()), &status);
        if (U_SUCCESS(status)) return int(result);
    }
    // Without ICU's data the names still come in a stable order.
    return a.compare(b);
}

std::string lowercasedForSearch(std::string_view utf8) {
    icu::UnicodeString text =
        icu::UnicodeString::fromUTF8(icu::StringPiece(utf8.data(), std::int32_t(utf8.size())));
    text.toLower(icu::Locale::getRoot());
    UErrorCode status = U_ZERO_ERROR;
    if (const icu::Normalizer2* composed = icu::Normalizer2::getNFCInstance(status);
        U_SUCCESS(status)) {
        icu::UnicodeString normalized = composed->normalize(text, status);
        if (U_SUCCESS(status)) text = normalized;
    }
    std::string lower;
    return text.toUTF8String(lower);
}

}  // namespace quillstow::text
