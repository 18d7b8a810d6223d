/// What the command line and the environment say.
#ifndef GRPOWNERD_OPTIONS_H
#define GRPOWNERD_OPTIONS_H

#include <string>

struct OwnerOptions {
    std::string name;          ///< name of this process towards the process manager
    std::string entryPath;     ///< manifests; empty: the library takes the path from the environment
    std::string resource;      ///< resource file that serves the system-state manager; empty: none is served
    std::string events;        ///< queue on which system states are told; empty: they are not
    int readyDescriptor = -1;  ///< gets a byte when the boot is over; negative: none
};

/// What to do after parsing: run, or end with `exitCode` (help was printed, or the command line is wrong).
struct ParsedOptions {
    OwnerOptions options;
    bool run = false;
    int exitCode = 0;
};

ParsedOptions ParseOptions(int argc, char** argv);

#endif
