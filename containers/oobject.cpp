#include "containers/oobject.h"

OObject::~OObject() = default;
