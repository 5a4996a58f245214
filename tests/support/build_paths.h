// SPDX-License-Identifier: ISC
// Where the things that a program of the build tree runs, loads or reads lie. Their values are in
// the one file that is written for each build folder, so that all others compile to the same in any
// folder.
#pragma once

#include <string>

namespace quillworks::paths {

extern const std::string source;  // the source tree
extern const std::string quillhost;
extern const std::string module;
extern const std::string lv2Folder;  // with the bundle in it
extern const std::string clapFile;
extern const std::string vst3File;  // the binary in the bundle
extern const std::string bareHost;
extern const std::string probeModule;
extern const std::string moduleWithoutExports;
extern const std::string moduleWithoutFactory;
extern const std::string moduleThatRefuses;

}  // namespace quillworks::paths
