#include "xnl/std/math/cc2XformBase.h"

#include "persist/ccArchive.h"

void cc2XformBase::WriteBase(ccArchive& archive) { archive.WriteClassVersion(kBaseVersion); }

void cc2XformBase::ReadBase(ccArchive& archive) { archive.ReadClassVersion(kBaseVersion); }
