// VirtualBox plug-in (placeholder: refuses to load).
#include "vmtoolsengine.h"

extern "C" Q_DECL_EXPORT VMToolsEngine *getVMToolsEngine() { return nullptr; }
