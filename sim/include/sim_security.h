#pragma once

#include "sim_base.h"
