/// Checks a document against the keywords of JSON schema that our schema uses. An unknown keyword is a fault, so that
/// no rule of the schema stays without effect.
#ifndef TESTS_TOOLS_JSON_SCHEMA_H
#define TESTS_TOOLS_JSON_SCHEMA_H

#include <nlohmann/json.hpp>
#include <string>

class JsonSchema {
public:
    explicit JsonSchema(nlohmann::json root) : root_(std::move(root)) {}

    /// Empty when the document is as the schema says, otherwise what is wrong with it.
    std::string Check(const nlohmann::json& document) const { return Check(root_, document); }

private:
    using Json = nlohmann::json;

    std::string Check(const Json& schema, const Json& value) const;
    std::string CheckKeyword(const std::string& keyword, const Json& schema, const Json& value) const;
    std::string CheckObject(const Json& schema, const Json& value) const;
    std::string CheckItems(const Json& schema, const Json& value) const;
    size_t CountMatches(const Json& schemas, const Json& value) const;

    Json root_;
};

#endif
