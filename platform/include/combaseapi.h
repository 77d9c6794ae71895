#pragma once
#include "objbase.h"
