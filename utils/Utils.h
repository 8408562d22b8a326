// The utility layer in one include: logging, compression, parallel loops, environment expansion,
// base64 and the geometry value classes.
//
//   #include "utils/Utils.h"
//   ZeltoUtils::Logger::warning() << "no skeleton ";
#pragma once

#include "utils/Base64.h"
#include "utils/Compression.h"
#include "utils/Curve.h"
#include "utils/Environment.h"
#include "utils/Export.h"
#include "utils/Image.h"
#include "utils/Logger.h"
#include "utils/Mesh.h"
#include "utils/ParallelFor.h"
#include "utils/SampledCurve.h"
