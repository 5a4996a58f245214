// SPDX-License-Identifier: ISC
#include "vectorlib/vector_library.h"

#include "vectorlib/families.h"

namespace DSP::VectorLib {

void vectorLibraryInfo(LibraryInfo* info, int /*permitted*/)
{
    *info = {1, "vectorcall"};
}

bool vectorLibraryBindFunction(VectorOpTableEntryRaw* entry, int permitted)
{
    return bindArithmetic(entry, permitted) || bindGains(entry, permitted) ||
           bindMixes(entry, permitted) || bindLimits(entry, permitted) ||
           bindMeters(entry, permitted);
}

}  // namespace DSP::VectorLib
