// The test of a service outside the project: an empty map, asked in the testing kit.
#include "containers/amap.h"
#include "testing/kit.h"

int main() { return 0; }
