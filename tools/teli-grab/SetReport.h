#pragma once
// What teli-grab tells of a set: the camera's per-image records and the verdict on
// them, as text, as sequence.json, and as the images to mark.

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "TavriAPI/CameraDriver.h"
#include "TavriAPI/ImageRecords.h"
#include "TavriAPI/SetMatch.h"

namespace TeliGrab {

// The plug-in's records of the camera; a plug-in without them is a driver error.
const Tavri::ImageRecordSource& recordSource(Tavri::CameraDriver& camera);

// The verdict on the set just finished, from the plug-in's records: a record of an
// image in another size than the set's mode is a driver error first. `triggerRate`
// (pulses per second, 0: unknown) sets the period the set is judged by.
Tavri::SetVerdict judgeFinishedSet(Tavri::CameraDriver& camera, const Tavri::ImageSet& set, double triggerRate);

// Images that do not show their own pattern: named in a problem, or answering another
// trigger than their index.
std::vector<bool> brokenImages(const Tavri::SetVerdict& verdict, int count);

// The verdict, its problems and one entry per image taken (index, trigger, frame,
// camera time, host time, status); unknown numbers are null.
nlohmann::ordered_json setReport(const Tavri::SequenceRecords& records, const Tavri::SetVerdict& verdict);

// The report of several cameras' sets taken together: each camera's serial and
// setReport, and the match of the sets.
nlohmann::ordered_json setsReport(const std::vector<std::pair<std::string, nlohmann::ordered_json>>& cameras,
                                  const Tavri::SetMatch& match);

// Writes `report` as DIR/sequence.json; a failure is an OutputError.
void writeSetReport(const std::string& directory, const nlohmann::ordered_json& report);

// Frames the camera numbered between two images taken one after the other in a
// stream (0 when the numbers cannot tell).
std::uint64_t framesMissedBetween(const Tavri::ImageRecord& previous, const Tavri::ImageRecord& next);

}  // namespace TeliGrab
