/// Where the picture of a graph goes.
#ifndef SSCTL_GRAPH_FILES_H
#define SSCTL_GRAPH_FILES_H

#include <string>

#include "tools/ssctl/outcome.h"

namespace Ssctl {

/// Writes the text of the outcome to the files that are named, an SVG one by way of Graphviz, and takes it out of the
/// outcome when there is one. What goes wrong makes the outcome a complaint.
void WriteGraphFiles(const std::string& dotFile, const std::string& svgFile, Outcome& outcome);

}  // namespace Ssctl

#endif
