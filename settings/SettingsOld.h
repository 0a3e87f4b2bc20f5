#pragma once
// The platform's shared catalogue of setting keys, defaults and words. The driver
// uses only the camera, exposure and balance entries but carries the catalogue whole.

#include <string>

namespace SettingsOld {

inline const std::string BlueBalance = "BlueBalance";
inline const std::string RedBalance = "RedBalance";
inline const std::string ExposureTime = "ExposureTime";
inline const std::string Iris = "Iris";
inline const std::string Brightness = "Brightness";
inline const std::string Bidirectional = "Bidirectional";

namespace Filters {
inline const std::string Name = "Filters";
namespace Contrast {
inline const std::string Name = "Filters/Contrast";
inline const std::string Threshold = "Filters/Contrast/Threshold";
}  // namespace Contrast
namespace Outlier {
inline const std::string Name = "Filters/Outlier";
inline const std::string Enabled = "Filters/Outlier/Enabled";
inline const std::string Threshold = "Filters/Outlier/Threshold";
}  // namespace Outlier
namespace Saturated {
inline const std::string Name = "Filters/Saturated";
inline const std::string Enabled = "Filters/Saturated/Enabled";
}  // namespace Saturated
namespace Reflection {
inline const std::string Name = "Filters/Reflection";
inline const std::string Enabled = "Filters/Reflection/Enabled";
}  // namespace Reflection
}  // namespace Filters

namespace Measurement {
inline const std::string Name = "Measurement";
inline const std::string CalibrationFile = "Measurement/CalibrationFile";
inline const std::string CalibrationFileDefault = "";
inline const std::string ApplyCalibration = "Measurement/ApplyCalibration";
inline const std::string AdvancedPattern = "Measurement/AdvancedPattern";
inline const std::string AdvancedPatternDefault = "Diamond";
namespace AdvancedPatternValues {
inline const std::string Diamond = "Diamond";
inline const std::string Plain = "Plain";
inline const std::string ErrorCorrecting = "ErrorCorrecting";
inline const std::string Inverse = "Inverse";
}  // namespace AdvancedPatternValues
inline const std::string InversePatterns = "Measurement/InversePatterns";
inline const std::string InvalidateBottom = "Measurement/InvalidateBottom";
inline const std::string InvalidateLeft = "Measurement/InvalidateLeft";
inline const std::string InvalidateRight = "Measurement/InvalidateRight";
inline const std::string InvalidateTop = "Measurement/InvalidateTop";
inline const std::string MinZ = "Measurement/MinZ";
inline const std::string MaxZ = "Measurement/MaxZ";
}  // namespace Measurement

namespace Camera {
inline const std::string Name = "Camera";
inline const std::string Driver = "Camera/Driver";
inline const std::string DriverDefault = "ToshibaTeli";
namespace DriverValues {
inline const std::string ToshibaTeli = "ToshibaTeli";
inline const std::string IDS = "IDS";
inline const std::string PtGrey = "PtGrey";
inline const std::string NetCDF = "NetCDF";
}  // namespace DriverValues
inline const std::string Group = "Camera/Group";
inline const std::string MeasurementFile = "Camera/MeasurementFile";
inline const std::string MeasurementFileDefault = "";
inline const std::string BayerLayout = "Camera/BayerLayout";
inline const std::string BayerLayoutDefault = "BGGR";
namespace BayerLayoutValues {
inline const std::string GRBG = "GRBG";
inline const std::string RGGB = "RGGB";
inline const std::string BGGR = "BGGR";
inline const std::string GBRG = "GBRG";
}  // namespace BayerLayoutValues
inline const std::string ColorMode = "Camera/ColorMode";
inline const std::string ColorModeDefault = "Raw";
namespace ColorModeValues {
inline const std::string Gray = "Gray";
inline const std::string Color = "Color";
inline const std::string Raw = "Raw";
}  // namespace ColorModeValues
inline const std::string BlackLevel = "Camera/BlackLevel";
inline const std::string Gain = "Camera/Gain";
inline const std::string Gamma = "Camera/Gamma";
inline const std::string FrameRate = "Camera/FrameRate";
inline const std::string PixelClock = "Camera/PixelClock";
inline const std::string TriggerType = "Camera/TriggerType";
inline const std::string TriggerTypeDefault = "Hardware";
namespace TriggerTypeValues {
inline const std::string Hardware = "Hardware";
inline const std::string Software = "Software";
inline const std::string NoTrigger = "NoTrigger";
}  // namespace TriggerTypeValues
inline const std::string TriggerPolarity = "Camera/TriggerPolarity";
inline const std::string TriggerPolarityDefault = "FallingEdge";
namespace TriggerPolarityValues {
inline const std::string RisingEdge = "RisingEdge";
inline const std::string FallingEdge = "FallingEdge";
}  // namespace TriggerPolarityValues
inline const std::string SaveImages = "Camera/SaveImages";
inline const std::string SaveChildMeasurements = "Camera/SaveChildMeasurements";
}  // namespace Camera

namespace Projector {
inline const std::string Name = "Projector";
inline const std::string ToggleRGB = "Projector/ToggleRGB";
inline const std::string ToggleRGBDefault = "RGB";
inline const std::string VirtualTemperature = "Projector/VirtualTemperature";
inline const std::string EnableTemperatureRegulator = "Projector/EnableTemperatureRegulator";
inline const std::string MaxLEDCurrents = "Projector/MaxLEDCurrents";
inline const std::string MaxLEDCurrentsDefault = "90 90 90";
inline const std::string MaxTemperature = "Projector/MaxTemperature";
}  // namespace Projector

namespace Calibration {
inline const std::string Name = "Calibration";
inline const std::string Method = "Calibration/Method";
inline const std::string MethodDefault = "ProjectorCameraMultiTemp";
namespace MethodValues {
inline const std::string ProjectorCamera = "ProjectorCamera";
inline const std::string Polynomial = "Polynomial";
inline const std::string ProjectorCameraMultiTemp = "ProjectorCameraMultiTemp";
}  // namespace MethodValues
}  // namespace Calibration

namespace Global {
inline const std::string Name = "Global";
inline const std::string ProductRevision = "Global/ProductRevision";
inline const std::string ProductRevisionDefault = "Rev3";
namespace ProductRevisionValues {
inline const std::string Rev0 = "Rev0";
inline const std::string Rev1 = "Rev1";
inline const std::string Rev2 = "Rev2";
inline const std::string Rev3 = "Rev3";
}  // namespace ProductRevisionValues
inline const std::string Validate = "Global/Validate";
inline const std::string DebugMessages = "Global/DebugMessages";
}  // namespace Global

namespace Lens {
inline const std::string Name = "Lens";
inline const std::string MaxIris = "Lens/MaxIris";
}  // namespace Lens

}  // namespace SettingsOld
