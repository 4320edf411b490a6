#pragma once

#include <json/json.h>

#include <random>
#include <string>

namespace store {

/// Draws JSON values of every kind, nested a few levels deep. The same seed gives the same values everywhere: the
/// library's distributions differ between systems, so the numbers come straight from the engine.
class RandomJson {
public:
    explicit RandomJson(unsigned uSeed) : _engine(uSeed) {}

    /// A number from 0 to uEnd - 1.
    unsigned Below(unsigned uEnd) { return static_cast<unsigned>(_engine() % uEnd); }

    Json::Value Value(int iDepth);
    /// Something that looks much like a definition, good or bad.
    Json::Value NearDefinition();
    std::string Text();

private:
    Json::Value Scalar();
    Json::Value Field();

    std::mt19937 _engine;
};

} // namespace store
