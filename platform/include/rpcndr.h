// The one MIDL base type that WinRT signatures use: boolean, a single byte.
#pragma once

typedef unsigned char boolean;
