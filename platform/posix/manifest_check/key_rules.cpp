#include "platform/posix/manifest_check/key_rules.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string>

#include "platform/posix/manifest/manifest_rules.h"
#include "platform/posix/manifest/manifest_text.h"

namespace ProcMgr {
namespace {

/// A key whose value is good by itself; `text` is empty when nothing is wrong with it.
struct KeyRule {
    const char* key;
    ManifestFault fault;
    bool isAboutOtherKeys;  ///< of a bad manifest nothing is known about those
    std::string (*check)(const ManifestEntry& entry);
};

std::string CheckPolicyRestarts(const ManifestEntry& entry) {
    return entry.attributes.restart == "on-until-succeed"
               ? "the group owner restarts nothing with 'on-until-succeed'; write 'on-failure' or 'on-forever', or "
                 "'never' if that is meant"
               : "";
}

std::string CheckInstancesRestart(const ManifestEntry& entry) {
    const std::string& policy = entry.attributes.restart;
    const bool wantsRestart = policy == "on-failure" || policy == "on-forever";
    return wantsRestart && IsTemplate(entry)
               ? "an instance of a template is forgotten when it ends, so that " + Quote(policy) +
                     " never restarts it; remove the key, or start instances again by a request"
               : "";
}

std::string CheckIsObject(const ManifestEntry& entry) {
    return entry.attributes.isSo ? "" : "has no effect without 'is_so: true'; add that or remove the key";
}

std::string CheckIsNoObject(const ManifestEntry& entry) {
    return entry.attributes.isSo ? "is not used with 'is_so: true'; remove one of the two" : "";
}

/// The words of the scheduling class count in any case; without a priority every class has one that goes with it.
std::string CheckPriority(const ManifestEntry& entry) {
    std::string type = entry.attributes.setRtType;
    if (type.empty()) {
        return "has no effect without 'set_rt_type'; add that or remove the key";
    }
    std::transform(type.begin(), type.end(), type.begin(), [](unsigned char byte) { return std::tolower(byte); });
    const bool isRealTime = type == "fifo" || type == "rr";
    const std::string& priority = entry.attributes.setRtPrio;
    if (priority.empty() || isRealTime == (priority != "0")) {
        return "";
    }
    return "does not go with the class " + Quote(type) + ", so that neither is applied; write " +
           (isRealTime ? "1 to 99" : "0 or remove the key");
}

/// One of the attributes that say nothing when they are left out. The others stand for a value also then.
std::string CheckHeldAttributes(const ManifestEntry& entry) {
    const ApplicationAttributes& attributes = entry.attributes;
    struct Held {
        const char* key;
        bool isEmpty;
    };
    const std::array<Held, 3> rows = {{{"core_affinity", attributes.coreAffinity.empty()},
                                       {"res_group_name", attributes.resGroupName.empty()},
                                       {"set_rt_type", attributes.setRtType.empty() && attributes.setRtPrio.empty()}}};
    const auto* const empty = std::find_if(rows.begin(), rows.end(), [&](const Held& row) {
        return row.isEmpty && attributes.mustHold.count(row.key) != 0;
    });
    return empty == rows.end() ? ""
                               : Quote(empty->key) + " is to hold but is not given; add it or remove it from the list";
}

constexpr std::array<KeyRule, 8> kRules = {{
    {"restart", ManifestFault::NEVER_RESTARTS, false, CheckPolicyRestarts},
    {"restart", ManifestFault::NEVER_RESTARTS, true, CheckInstancesRestart},
    {"bin_path", ManifestFault::NO_EFFECT, true, CheckIsNoObject},
    {"so_name", ManifestFault::NO_EFFECT, true, CheckIsObject},
    {"so_path", ManifestFault::NO_EFFECT, true, CheckIsObject},
    {"process_bind_path", ManifestFault::NO_EFFECT, true, CheckIsObject},
    {"set_rt_prio", ManifestFault::NO_EFFECT, true, CheckPriority},
    {"must_hold", ManifestFault::NO_EFFECT, true, CheckHeldAttributes},
}};

}  // namespace

void FindUselessKeys(const ManifestEntry& entry, std::vector<ManifestError>& found) {
    for (const KeyRule& rule : kRules) {
        if (entry.keys.count(rule.key) == 0 || (rule.isAboutOtherKeys && !entry.isGood)) {
            continue;
        }
        const std::string text = rule.check(entry);
        if (!text.empty()) {
            found.push_back(ErrorOf(entry, rule.fault, entry.PlaceOf(rule.key), rule.key, text));
        }
    }
}

}  // namespace ProcMgr
