#include "ctl/proposal.h"

#include <iostream>
#include <set>

#include "ctl/document.h"
#include "ctl/reviewtext.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

/// What a message about one of several begins with.
std::string WhichOf(const Proposal& proposal, std::size_t uDefinition) {
    if (!proposal.bArray) {
        return std::string();
    }
    const Json::Value& jsDefinition = proposal.vecDefinitions[uDefinition];
    const bool bNamed = jsDefinition.isObject() && jsDefinition["name"].isString();
    return "definition " + std::to_string(uDefinition + 1) +
           (bNamed ? " " + Service::Quoted(jsDefinition["name"].asString()) : std::string()) + ": ";
}

} // namespace

Proposal ReadProposal(const std::string& strFile) {
    Document document = ReadDocument(strFile);
    Proposal proposal{strFile == "-" ? "standard input" : strFile, SourceText(std::move(document.strText))};
    if (!document.strReason.empty()) {
        proposal.review.vecErrors.push_back(WhyNoDocument(document, proposal.source));
        proposal.bDenied = document.bDenied;
        return proposal;
    }
    proposal.bArray = document.jsValue.isArray();
    if (!proposal.bArray) {
        proposal.vecDefinitions.push_back(document.jsValue);
        return proposal;
    }
    proposal.vecDefinitions.assign(document.jsValue.begin(), document.jsValue.end());
    if (proposal.vecDefinitions.empty()) {
        proposal.review.vecErrors.push_back({"holds no definition"});
    }
    return proposal;
}

bool IsGood(Proposal& proposal, const Place& place) {
    std::set<std::string> setNames;
    for (std::size_t u = 0; u < proposal.vecDefinitions.size(); ++u) {
        const Json::Value& jsDefinition = proposal.vecDefinitions[u];
        Review review = ReviewDefinition(jsDefinition, OriginOf(place));
        const bool bNamed = jsDefinition.isObject() && jsDefinition["name"].isString();
        if (bNamed && !setNames.insert(jsDefinition["name"].asString()).second) {
            review.vecErrors.push_back({"field \"name\": stands there twice", {"name"}});
        }
        if (!proposal.source.Text().empty()) {
            FindSpans(review, jsDefinition, proposal.source);
        }
        TakeOver(proposal.review, std::move(review), WhichOf(proposal, u));
    }
    PrintReview(std::cerr, proposal.strWhere, proposal.review, proposal.source);
    return proposal.review.vecErrors.empty();
}

} // namespace VUKO::VUKOCrond::Ctl
