#include "daemons/procmgrd/app_notice.h"

namespace Procmgrd {
namespace {

struct KnownLine {
    std::string_view text;
    void (*note)(AppNotice& notice);
};

void NoteOn(AppNotice& notice) {
    notice.appState = 0;
}

void NoteOff(AppNotice& notice) {
    notice.appState = 1;
}

void NoteBeat(AppNotice& notice) {
    notice.isBeat = true;
}

void NoteBarrier(AppNotice& notice) {
    notice.isBarrier = true;
}

constexpr KnownLine kKnownLines[] = {
    {"procmgr 1 on", NoteOn}, {"procmgr 1 off", NoteOff}, {"procmgr 1 beat", NoteBeat}, {"READY=1", NoteOn},
    {"STOPPING=1", NoteOff},  {"WATCHDOG=1", NoteBeat},   {"BARRIER=1", NoteBarrier},
};

std::string Escaped(std::string_view text) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string escaped;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20U && byte != 0x7fU) {
            escaped += c;
        } else {
            escaped += {'\\', 'x', kDigits[byte >> 4U], kDigits[byte & 0xfU]};
        }
    }
    return escaped;
}

void ReadLine(std::string_view line, AppNotice& notice) {
    constexpr std::string_view kStatus = "STATUS=";
    for (const KnownLine& known : kKnownLines) {
        if (line == known.text) {
            known.note(notice);
            notice.isUnderstood = true;
            return;
        }
    }
    if (line.substr(0, kStatus.size()) == kStatus) {
        notice.status = Escaped(line.substr(kStatus.size()));
    }
    const size_t equals = line.find('=');
    notice.isUnderstood = notice.isUnderstood || (equals != std::string_view::npos && equals > 0);
}

}  // namespace

AppNotice ReadAppNotice(std::string_view datagram, bool isWhole) {
    AppNotice notice;
    // Programs that send the end of their C text along.
    if (isWhole && !datagram.empty() && datagram.back() == '\0') {
        datagram.remove_suffix(1);
    }
    while (!datagram.empty()) {
        const size_t end = datagram.find('\n');
        if (end == std::string_view::npos && !isWhole) {
            break;
        }
        ReadLine(datagram.substr(0, end), notice);
        datagram.remove_prefix(end == std::string_view::npos ? datagram.size() : end + 1);
    }
    return notice;
}

}  // namespace Procmgrd
