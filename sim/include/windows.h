// Stands in for the SDK's header of this name: just what the service uses, with the SDK's names and layouts.
#pragma once

#include "sim_base.h"
#include "sim_com.h"
#include "sim_console.h"
#include "sim_kernel.h"
#include "sim_power.h"
#include "sim_registry.h"
#include "sim_security.h"
#include "sim_service.h"
#include "sim_setup.h"
#include "sim_user.h"
