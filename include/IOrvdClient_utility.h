// Conversions between texts and values, for services.

#pragma once
