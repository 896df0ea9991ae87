/// The managers that exist, for diagnostics.
#pragma once

#include <list>

class CfgMan;

/// In the order of construction.
std::list<CfgMan*>& liveManagers();
