// The schema for editors says the same as the parser's table.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "platform/posix/manifest/manifest_keys.h"

namespace {

nlohmann::json Schema() {
    std::ifstream file(MANIFEST_SCHEMA_FILE);
    return nlohmann::json::parse(file);
}

nlohmann::json PropertiesOf(const nlohmann::json& schema) {
    return schema.at("definitions").at("manifest").at("properties");
}

/// The type of a schema entry for each type of a field.
struct TypeName {
    std::string operator()(std::string ApplicationAttributes::* /*field*/) const { return "string"; }
    std::string operator()(bool ApplicationAttributes::* /*field*/) const { return "boolean"; }
    std::string operator()(uint32_t ApplicationAttributes::* /*field*/) const { return "integer"; }
    std::string operator()(int32_t ApplicationAttributes::* /*field*/) const { return "integer"; }
    std::string operator()(std::vector<std::string> ApplicationAttributes::* /*field*/) const { return "array"; }
    std::string operator()(std::vector<int32_t> ApplicationAttributes::* /*field*/) const { return "array"; }
    std::string operator()(std::set<std::string> ApplicationAttributes::* /*field*/) const { return "array"; }
    std::string operator()(std::map<std::string, std::string> ApplicationAttributes::* /*field*/) const {
        return "object";
    }
};

/// The entry that describes the value itself; beside it may stand the text form with a ${KEY} in it.
nlohmann::json ValueOf(const nlohmann::json& property) {
    return property.contains("anyOf") ? property.at("anyOf").at(0) : property;
}

TEST(ManifestJsonSchema, HasTheKeysOfTheParserAndNoOthers) {
    std::set<std::string> inSchema;
    const nlohmann::json properties = PropertiesOf(Schema());
    for (const auto& [name, property] : properties.items()) {
        inSchema.insert(name);
    }
    std::set<std::string> inParser;
    for (const ProcMgr::ManifestKey& key : ProcMgr::ManifestKeys()) {
        inParser.insert(key.name);
    }
    EXPECT_EQ(inSchema, inParser);
    EXPECT_EQ(Schema().at("definitions").at("manifest").at("additionalProperties"), false);
}

TEST(ManifestJsonSchema, HasTheTypesAndBoundsOfTheParser) {
    const nlohmann::json properties = PropertiesOf(Schema());
    for (const ProcMgr::ManifestKey& key : ProcMgr::ManifestKeys()) {
        SCOPED_TRACE(key.name);
        const nlohmann::json value = ValueOf(properties.at(key.name));
        const std::string type = std::visit(TypeName(), key.field);
        const bool takesNumbersToo = value.at("type").is_array();
        EXPECT_EQ(takesNumbersToo ? value.at("type").at(0) : value.at("type"), type);
        const nlohmann::json number = type == "array" ? ValueOf(value.at("items")) : value;
        if (key.max != 0) {
            EXPECT_EQ(number.at("minimum"), key.min);
            EXPECT_EQ(number.at("maximum"), key.max);
        }
    }
}

TEST(ManifestJsonSchema, DescribesEachKeyWithItsDefault) {
    const nlohmann::json properties = PropertiesOf(Schema());
    for (const auto& [name, property] : properties.items()) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(property.at("description").get<std::string>().empty());
        EXPECT_EQ(property.contains("default"), name != "app_name" && name != "bin_path");
    }
}

TEST(ManifestManualPage, HasTheKeysOfTheParserAndNoOthers) {
    std::ifstream file(MANIFEST_MANUAL_PAGE);
    std::set<std::string> inPage;
    for (std::string before, line; std::getline(file, line); before = line) {
        if (before == ".TP") {
            inPage.insert(line.substr(4, line.find(':') - 4));
        }
    }
    std::set<std::string> inParser;
    for (const ProcMgr::ManifestKey& key : ProcMgr::ManifestKeys()) {
        inParser.insert(key.name);
    }
    EXPECT_EQ(inPage, inParser);
}

TEST(ManifestJsonSchema, IsLinkedToADocumentationThatNamesEveryKey) {
    std::ifstream file(MANIFEST_DOCUMENTATION_FILE);
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    for (const ProcMgr::ManifestKey& key : ProcMgr::ManifestKeys()) {
        EXPECT_NE(text.find("### `" + std::string(key.name) + "`"), std::string::npos) << key.name;
        EXPECT_NE(text.find(key.example), std::string::npos) << key.example;
    }
}

}  // namespace
