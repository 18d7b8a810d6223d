#include "platform/posix/manifest/manifest_keys.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>
#include <type_traits>

#include "platform/posix/manifest/manifest_text.h"

namespace ProcMgr {
namespace {

using Attributes = ApplicationAttributes;

constexpr int64_t kMaxU32 = std::numeric_limits<uint32_t>::max();
// The greatest value means "leave as it is" to the calls that set an identity.
constexpr int64_t kMaxId = kMaxU32 - 1;
constexpr int64_t kMaxCore = 1023;

std::string CheckWord(const std::string& text, const std::vector<std::string>& words) {
    if (std::find(words.begin(), words.end(), text) != words.end()) {
        return "";
    }
    return Quote(text) + " is not known; the nearest known value is " + Quote(NearestOf(text, words)) + "; correct it";
}

std::string CheckRestart(const std::string& text) {
    return CheckWord(text, {"on-failure", "on-forever", "on-until-succeed", "never"});
}

std::string CheckRtType(const std::string& text) {
    std::string lower = text;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char byte) { return std::tolower(byte); });
    return CheckWord(lower, {"fifo", "rr", "other", "batch", "idle"});
}

std::string CheckMustHold(const std::string& text) {
    return CheckWord(text, {"uid", "gid", "core_affinity", "res_group_name", "set_rt_type", "set_rt_prio"});
}

bool ParseNumber(const std::string& text, int64_t min, int64_t max, int64_t& number) {
    const char* const end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, number);
    // A leading zero would be octal to some readers of YAML and decimal to others.
    const size_t sign = text.rfind('-', 0) == 0 ? 1 : 0;
    const bool isPlain = text.size() - sign == 1 || text[sign] != '0';
    return error == std::errc() && last == end && isPlain && number >= min && number <= max;
}

std::string CheckRtPrio(const std::string& text) {
    int64_t number = 0;
    return ParseNumber(text, 0, 99, number) ? "" : Quote(text) + " is no whole number from 0 to 99; correct it";
}

std::string CheckVariable(const std::string& name) {
    const bool isGood = !name.empty() && name.find('=') == std::string::npos;
    return isGood ? "" : Quote(name) + " is no name of an environment variable; it must not be empty or hold '='";
}

/// Reads the value of one key. The overloads differ in the type of the field.
class ValueReader {
public:
    ValueReader(const ManifestKey& key, const YamlNode& value, ReadScope& scope, Attributes& attributes)
        : key_(key), value_(value), scope_(scope), attributes_(attributes) {}

    void operator()(std::string Attributes::*field) {
        std::string text;
        if (Text(value_, "a text", text)) {
            attributes_.*field = std::move(text);
        }
    }

    void operator()(bool Attributes::*field) {
        std::string text;
        if (!Text(value_, "true or false", text)) {
            return;
        }
        if (text != "true" && text != "false") {
            WrongType(value_, "true or false", "the text " + Quote(text));
            return;
        }
        attributes_.*field = text == "true";
    }

    void operator()(uint32_t Attributes::*field) { ReadNumber(value_, attributes_.*field); }
    void operator()(int32_t Attributes::*field) { ReadNumber(value_, attributes_.*field); }

    void operator()(std::vector<std::string> Attributes::*field) {
        for (const YamlNode& item : Items("a list of texts")) {
            std::string text;
            if (Text(item, "a text", text)) {
                (attributes_.*field).push_back(std::move(text));
            }
        }
    }

    void operator()(std::vector<int32_t> Attributes::*field) {
        for (const YamlNode& item : Items("a list of numbers")) {
            int32_t number = 0;
            ReadNumber(item, number);
            (attributes_.*field).push_back(number);
        }
    }

    void operator()(std::set<std::string> Attributes::*field) {
        for (const YamlNode& item : Items("a list of texts")) {
            std::string text;
            if (Text(item, "a text", text)) {
                (attributes_.*field).insert(std::move(text));
            }
        }
    }

    void operator()(std::map<std::string, std::string> Attributes::*field) {
        if (value_.kind != YamlNode::Kind::MAP) {
            WrongType(value_, "a map of texts");
            return;
        }
        for (size_t i = 0; i < value_.keys.size(); ++i) {
            ReadPair(value_.keys[i], value_.items[i], attributes_.*field);
        }
    }

private:
    void Report(const YamlNode& node, const std::string& text) { scope_.Report(node, key_.name, text); }

    void WrongType(const YamlNode& node, const std::string& wanted, const std::string& found) {
        Report(node, "wants " + wanted + " but found " + found + "; write it like " + Quote(key_.example));
    }

    void WrongType(const YamlNode& node, const std::string& wanted) {
        if (node.kind == YamlNode::Kind::ALIAS) {
            Report(node, "found an alias, which a manifest must not use; write the value out");
            return;
        }
        WrongType(node, wanted, Describe(node));
    }

    bool Text(const YamlNode& node, const std::string& wanted, std::string& text) {
        if (node.kind != YamlNode::Kind::TEXT) {
            WrongType(node, wanted);
            return false;
        }
        std::string problem = scope_.TextOf(node, text);
        if (problem.empty() && key_.check != nullptr) {
            problem = key_.check(text);
        }
        if (!problem.empty()) {
            Report(node, problem);
        }
        return problem.empty();
    }

    template <typename T>
    void ReadNumber(const YamlNode& node, T& field) {
        const std::string wanted =
            "a whole number from " + std::to_string(key_.min) + " to " + std::to_string(key_.max);
        std::string text;
        if (!Text(node, wanted, text)) {
            return;
        }
        int64_t number = 0;
        if (!ParseNumber(text, key_.min, key_.max, number)) {
            WrongType(node, wanted, "the text " + Quote(text));
            return;
        }
        field = static_cast<T>(number);
    }

    const std::vector<YamlNode>& Items(const std::string& wanted) {
        if (value_.kind != YamlNode::Kind::LIST) {
            WrongType(value_, wanted);
        }
        static const std::vector<YamlNode> none;
        return value_.kind == YamlNode::Kind::LIST ? value_.items : none;
    }

    void ReadPair(const YamlNode& nameNode, const YamlNode& textNode, std::map<std::string, std::string>& pairs) {
        std::string name;
        std::string text;
        if (!Text(nameNode, "a text", name) || !Text(textNode, "a text", text)) {
            return;
        }
        const std::string problem = CheckVariable(name);
        if (!problem.empty()) {
            Report(nameNode, problem);
            return;
        }
        if (!pairs.emplace(name, std::move(text)).second) {
            Report(nameNode, "the name " + Quote(name) + " stands twice; remove one of them");
        }
    }

    const ManifestKey& key_;
    const YamlNode& value_;
    ReadScope& scope_;
    Attributes& attributes_;
};

std::vector<std::string> KeyNames() {
    std::vector<std::string> names;
    names.reserve(ManifestKeys().size());
    for (const ManifestKey& key : ManifestKeys()) {
        names.emplace_back(key.name);
    }
    return names;
}

}  // namespace

const std::vector<ManifestKey>& ManifestKeys() {
    constexpr int64_t kMinI32 = std::numeric_limits<int32_t>::min();
    constexpr int64_t kMaxI32 = std::numeric_limits<int32_t>::max();
    static const std::vector<ManifestKey> keys = {
        {"app_name", &Attributes::appName, "app_name: camera", 0, 0, CheckOwnName},
        {"bin_path", &Attributes::binPath, "bin_path: /opt/robot/bin/camera"},
        {"arguments", &Attributes::arguments, "arguments: [--rate, '30']"},
        {"env_argv", &Attributes::envArgv, "env_argv: {LOG_LEVEL: info}"},
        {"uid", &Attributes::uid, "uid: 1000", 0, kMaxId},
        {"gid", &Attributes::gid, "gid: 1000", 0, kMaxId},
        {"depends", &Attributes::depends, "depends: [clock, camera@front]", 0, 0, CheckDependencyName},
        {"is_auto_boot", &Attributes::isAutoBoot, "is_auto_boot: true"},
        {"is_reporting", &Attributes::isReporting, "is_reporting: true"},
        {"is_dynamic_para", &Attributes::isDynamicPara, "is_dynamic_para: true"},
        {"restart", &Attributes::restart, "restart: on-failure", 0, 0, CheckRestart},
        {"term_time_out", &Attributes::termTimeOut, "term_time_out: 5000", 0, kMaxU32},
        {"is_force_term", &Attributes::isForceTerm, "is_force_term: true"},
        {"heart_beat_switch", &Attributes::heartBeatSwitch, "heart_beat_switch: true"},
        {"is_so", &Attributes::isSo, "is_so: true"},
        {"so_name", &Attributes::soName, "so_name: libvision.so"},
        {"so_path", &Attributes::soPath, "so_path: /opt/robot/lib"},
        {"process_bind_path", &Attributes::processBindPath, "process_bind_path: /opt/robot/bin/host"},
        {"core_affinity", &Attributes::coreAffinity, "core_affinity: [0, 1]", 0, kMaxCore},
        {"set_rt_type", &Attributes::setRtType, "set_rt_type: fifo", 0, 0, CheckRtType},
        {"set_rt_prio", &Attributes::setRtPrio, "set_rt_prio: 50", 0, 0, CheckRtPrio},
        {"res_group_name", &Attributes::resGroupName, "res_group_name: vision"},
        {"must_hold", &Attributes::mustHold, "must_hold: [core_affinity]", 0, 0, CheckMustHold},
        {"is_ros_node", &Attributes::isRosNode, "is_ros_node: true"},
        {"node_type", &Attributes::nodeType, "node_type: 1", kMinI32, kMaxI32},
        {"vf_id", &Attributes::vfId, "vf_id: 1", 0, kMaxU32},
    };
    return keys;
}

const ManifestKey* FindManifestKey(const std::string& name) {
    const std::vector<ManifestKey>& keys = ManifestKeys();
    const auto found =
        std::find_if(keys.begin(), keys.end(), [&name](const ManifestKey& key) { return name == key.name; });
    return found == keys.end() ? nullptr : &*found;
}

std::string NearestManifestKey(const std::string& name) {
    static const std::vector<std::string> names = KeyNames();
    return NearestOf(name, names);
}

void ReadValue(const ManifestKey& key, const YamlNode& value, ReadScope& scope, ApplicationAttributes& attributes) {
    std::visit(ValueReader(key, value, scope, attributes), key.field);
}

}  // namespace ProcMgr
