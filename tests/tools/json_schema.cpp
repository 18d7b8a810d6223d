#include "tests/tools/json_schema.h"

#include <algorithm>
#include <set>
#include <stdexcept>

namespace {

using Json = nlohmann::json;

bool HasType(const Json& value, const std::string& type) {
    return (type == "object" && value.is_object()) || (type == "array" && value.is_array()) ||
           (type == "string" && value.is_string()) || (type == "boolean" && value.is_boolean()) ||
           (type == "integer" && value.is_number_integer()) || (type == "null" && value.is_null());
}

bool HasOneOfTypes(const Json& value, const Json& types) {
    if (types.is_string()) {
        return HasType(value, types.get<std::string>());
    }
    return std::any_of(types.begin(), types.end(),
                       [&](const Json& type) { return HasType(value, type.get<std::string>()); });
}

std::string Unless(bool holds, const std::string& keyword, const Json& value) {
    return holds ? "" : keyword + " does not hold for " + value.dump();
}

}  // namespace

std::string JsonSchema::Check(const Json& schema, const Json& value) const {
    for (const auto& [keyword, rule] : schema.items()) {
        std::string fault = CheckKeyword(keyword, schema, value);
        if (!fault.empty()) {
            return fault;
        }
    }
    return {};
}

size_t JsonSchema::CountMatches(const Json& schemas, const Json& value) const {
    return static_cast<size_t>(std::count_if(schemas.begin(), schemas.end(),
                                             [&](const Json& schema) { return Check(schema, value).empty(); }));
}

std::string JsonSchema::CheckObject(const Json& schema, const Json& value) const {
    for (const auto& [name, member] : value.items()) {
        if (schema.at("properties").contains(name)) {
            std::string fault = Check(schema.at("properties").at(name), member);
            if (!fault.empty()) {
                return name + ": " + fault;
            }
        } else if (schema.contains("additionalProperties")) {
            return "there may be no member " + name;
        }
    }
    return {};
}

std::string JsonSchema::CheckItems(const Json& schema, const Json& value) const {
    for (const Json& item : value) {
        std::string fault = Check(schema.at("items"), item);
        if (!fault.empty()) {
            return fault;
        }
    }
    return {};
}

std::string JsonSchema::CheckKeyword(const std::string& keyword, const Json& schema, const Json& value) const {
    static const std::set<std::string> kSilent = {"$schema", "$id", "title", "description", "definitions"};
    const Json& rule = schema.at(keyword);
    if (kSilent.count(keyword) != 0) {
        return {};
    }
    if (keyword == "$ref") {
        return Check(root_.at(Json::json_pointer(rule.get<std::string>().substr(1))), value);
    }
    if (keyword == "oneOf") {
        return Unless(CountMatches(rule, value) == 1, keyword, value);
    }
    if (keyword == "anyOf") {
        return Unless(CountMatches(rule, value) != 0, keyword, value);
    }
    if (keyword == "not") {
        return Unless(!Check(rule, value).empty(), keyword, value);
    }
    if (keyword == "type") {
        return Unless(HasOneOfTypes(value, rule), keyword, value);
    }
    if (keyword == "const") {
        return Unless(value == rule, keyword, value);
    }
    if (keyword == "enum") {
        return Unless(std::find(rule.begin(), rule.end(), value) != rule.end(), keyword, value);
    }
    if (keyword == "minimum") {
        return Unless(!value.is_number() || value >= rule, keyword, value);
    }
    if (keyword == "maximum") {
        return Unless(!value.is_number() || value <= rule, keyword, value);
    }
    if (keyword == "required") {
        return Unless(std::all_of(rule.begin(), rule.end(), [&](const Json& name) { return value.contains(name); }),
                      keyword, value);
    }
    if (keyword == "properties") {
        return CheckObject(schema, value);
    }
    if (keyword == "additionalProperties") {
        return rule == false ? "" : "only additionalProperties: false is understood";
    }
    if (keyword == "items") {
        return CheckItems(schema, value);
    }
    throw std::invalid_argument("the schema has a keyword that this check does not know: " + keyword);
}
