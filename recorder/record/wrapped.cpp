// The table of the wrapped calls: what the product's objects import are these.
#include "recorder/record/calls.h"
#include "recorder/wrap.h"

#define WRAP_ROW(name, wrapper) WRAP(name, record::wrapper)
RECORDED_CALLS(WRAP_ROW)
