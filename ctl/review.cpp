#include "ctl/review.h"

#include <utility>

#include "ctl/crontabreview.h"
#include "ctl/definitionreview.h"
#include "ctl/faults.h"
#include "ctl/fields.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

void TakeFaults(Review& review, const Json::Value& jsDefinition, const Service::DefinitionOrigin& origin) {
    for (Service::DefinitionFault& fault : FindFaults(jsDefinition, origin)) {
        review.vecErrors.push_back({std::move(fault.strReason), std::move(fault.place)});
    }
}

void TakeWarnings(Review& review, std::vector<Warning> vecWarnings) {
    for (Warning& warning : vecWarnings) {
        review.vecWarnings.push_back({std::move(warning)});
    }
}

Json::Value ToJson(const Position& position) {
    Json::Value jsPosition(Json::objectValue);
    jsPosition["line"] = static_cast<Json::UInt64>(position.uLine);
    jsPosition["column"] = static_cast<Json::UInt64>(position.uColumn);
    return jsPosition;
}

} // namespace

Review ReviewCrontab(const std::string& strCrontab) {
    Review review;
    TakeFaults(review, DefinitionOfCrontab(strCrontab), Service::DefinitionOrigin());
    TakeWarnings(review, LookAtCrontab(strCrontab));
    const auto spanOf = [&](const Service::DefinitionPlace& place) {
        return SourceSpan{place.uFrom, place.uCount == 0 ? strCrontab.size() : place.uFrom + place.uCount};
    };
    for (ReviewError& error : review.vecErrors) {
        error.span = spanOf(error.place);
    }
    for (ReviewWarning& warning : review.vecWarnings) {
        warning.span = spanOf(warning.place);
    }
    return review;
}

Review ReviewDefinition(const Json::Value& jsDefinition, const Service::DefinitionOrigin& origin) {
    Review review;
    TakeFaults(review, jsDefinition, origin);
    if (jsDefinition.isObject()) {
        TakeWarnings(review, LookAtDefinition(jsDefinition));
    }
    return review;
}

ReviewError WhyNoDocument(const Document& document, const SourceText& source) {
    ReviewError error{document.strReason, {}, document.strBareReason};
    if (document.uLine != 0) {
        const std::size_t uOffset = source.OffsetOf(document.uLine, document.uByteColumn);
        error.span = SourceSpan{uOffset, uOffset};
    }
    return error;
}

void FindSpans(Review& review, const Json::Value& jsDefinition, const SourceText& source) {
    for (ReviewError& error : review.vecErrors) {
        error.span = source.Find(jsDefinition, error.place);
    }
    for (ReviewWarning& warning : review.vecWarnings) {
        const bool bOfKey = warning.strCode == CODE_UNKNOWN_MEMBER;
        warning.span =
            bOfKey ? source.FindKey(jsDefinition[warning.place.strField]) : source.Find(jsDefinition, warning.place);
    }
}

void TakeOver(Review& whole, Review part, const std::string& strOf) {
    for (ReviewError& error : part.vecErrors) {
        error.strText.insert(0, strOf);
        whole.vecErrors.push_back(std::move(error));
    }
    for (ReviewWarning& warning : part.vecWarnings) {
        warning.strOf = strOf;
        whole.vecWarnings.push_back(std::move(warning));
    }
}

void PutReview(Json::Value& jsResult, const Review& review, const SourceText& source) {
    PutReview(jsResult, review);
    jsResult["positions"] = Json::Value(Json::arrayValue);
    for (const ReviewError& error : review.vecErrors) {
        jsResult["positions"].append(error.span ? ToJson(source.At(error.span->uFrom)) : Json::Value());
    }
    for (Json::ArrayIndex i = 0; i < jsResult["warnings"].size(); ++i) {
        if (review.vecWarnings[i].span) {
            const Json::Value jsPosition = ToJson(source.At(review.vecWarnings[i].span->uFrom));
            jsResult["warnings"][i]["line"] = jsPosition["line"];
            jsResult["warnings"][i]["column"] = jsPosition["column"];
        }
    }
}

void PutReview(Json::Value& jsResult, const Review& review) {
    jsResult["errors"] = Json::Value(Json::arrayValue);
    for (const ReviewError& error : review.vecErrors) {
        jsResult["errors"].append(error.strText);
    }
    jsResult["warnings"] = Json::Value(Json::arrayValue);
    for (const ReviewWarning& warning : review.vecWarnings) {
        Json::Value jsWarning(Json::objectValue);
        jsWarning["code"] = warning.strCode;
        jsWarning["field"] = warning.place.strField;
        jsWarning["text"] = warning.strOf + warning.strText;
        jsWarning["rewrite"] = warning.rewrite ? Json::Value(*warning.rewrite) : Json::Value();
        jsResult["warnings"].append(jsWarning);
    }
}

} // namespace VUKO::VUKOCrond::Ctl
