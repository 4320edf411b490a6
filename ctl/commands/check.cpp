#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>

#include "ctl/command.h"
#include "ctl/jobs.h"
#include "ctl/review.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

/// The reviews of one file's definitions in one: what is said of one of several names it.
Review ReviewFile(const std::string& strFile) {
    Review review;
    Json::Value jsDocument;
    const std::string strReason = ReadDocument(strFile, jsDocument);
    if (!strReason.empty()) {
        review.vecErrors.push_back(strReason);
        return review;
    }
    if (!jsDocument.isArray()) {
        return ReviewDefinition(jsDocument);
    }
    for (Json::ArrayIndex i = 0; i < jsDocument.size(); ++i) {
        std::string strWhere = "definition " + std::to_string(i + 1);
        if (jsDocument[i].isObject() && jsDocument[i]["name"].isString()) {
            strWhere += " \"" + jsDocument[i]["name"].asString() + "\"";
        }
        const Review one = ReviewDefinition(jsDocument[i]);
        for (const std::string& strError : one.vecErrors) {
            review.vecErrors.push_back(strWhere + ": " + strError);
        }
        for (Warning warning : one.vecWarnings) {
            warning.strText = strWhere + ": " + warning.strText;
            review.vecWarnings.push_back(std::move(warning));
        }
    }
    return review;
}

void Print(const std::string& strFile, const Review& review) {
    for (const std::string& strError : review.vecErrors) {
        std::cout << strFile << ": error: " << strError << "\n";
    }
    for (const Warning& warning : review.vecWarnings) {
        std::cout << strFile << ": warning: field \"" << warning.strField << "\": " << warning.strText << " ["
                  << warning.strCode << "]\n";
        if (warning.rewrite) {
            std::cout << strFile << ":          as in a classic crontab: \"" << *warning.rewrite << "\"\n";
        }
    }
    if (review.vecErrors.empty() && review.vecWarnings.empty()) {
        std::cout << strFile << ": valid\n";
    }
}

ExitStatus Run(const std::vector<std::string>& vecFiles, const Common& common) {
    Json::Value jsResult(Json::objectValue);
    jsResult["files"] = Json::Value(Json::arrayValue);
    bool bAllValid = true;
    for (const std::string& strFile : vecFiles) {
        const Review review = ReviewFile(strFile);
        bAllValid = bAllValid && review.vecErrors.empty();
        Json::Value jsFile(Json::objectValue);
        jsFile["file"] = strFile;
        jsFile["valid"] = review.vecErrors.empty();
        PutReview(jsFile, review);
        jsResult["files"].append(jsFile);
        if (!common.bJson) {
            Print(strFile, review);
        }
    }
    if (common.bJson) {
        PrintJson(jsResult);
    }
    return bAllValid ? EXIT_DONE : EXIT_WRONG;
}

} // namespace

void AddCheck(CLI::App& app, Common& common) {
    const auto vecFiles = std::make_shared<std::vector<std::string>>();
    AddCommand(app, common, "check", "Tell what is wrong with definition files, and what may surprise in them",
               [vecFiles, &common] { return Run(*vecFiles, common); })
        ->add_option("FILE", *vecFiles, "Definition files, - for standard input")
        ->required();
}

} // namespace VUKO::VUKOCrond::Ctl
