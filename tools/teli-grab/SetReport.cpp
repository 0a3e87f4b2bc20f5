#include "SetReport.h"

#include <filesystem>

#include "CameraChecks.h"
#include "ImageFile.h"
#include "ToolError.h"

namespace TeliGrab {

namespace {

nlohmann::ordered_json orNull(std::uint64_t value) {
    return value == Tavri::ImageRecord::kUnknown ? nlohmann::ordered_json() : nlohmann::ordered_json(value);
}

}  // namespace

Tavri::SetVerdict judgeFinishedSet(Tavri::CameraDriver& camera, const Tavri::ImageSet& set, double triggerRate) {
    const auto& records = recordSource(camera).sequenceRecords();
    // Pixels laid out for another format are no image of this mode, whole set or not.
    for (const auto& record : records.images)
        refuseWrongSize(record, set.mode, set.images.at(static_cast<std::size_t>(record.index)));
    Tavri::VerdictOptions options;
    if (triggerRate > 0) options.periodNs = 1e9 / triggerRate;
    return Tavri::judgeSet(records, options);
}

const Tavri::ImageRecordSource& recordSource(Tavri::CameraDriver& camera) {
    const auto* source = dynamic_cast<const Tavri::ImageRecordSource*>(&camera);
    if (!source) throw ToolError(ExitCode::DriverError, "the plug-in keeps no per-image records");
    return *source;
}

std::vector<bool> brokenImages(const Tavri::SetVerdict& verdict, int count) {
    std::vector<bool> broken(static_cast<std::size_t>(std::max(count, 0)), false);
    for (std::size_t i = 0; i < broken.size(); ++i)
        broken[i] = i >= verdict.triggers.size() || verdict.triggers[i] != static_cast<std::int32_t>(i);
    for (const auto& problem : verdict.problems)
        if (problem.cause != Tavri::SetProblemCause::MissingTrigger && problem.image >= 0 &&
            problem.image < count)
            broken[static_cast<std::size_t>(problem.image)] = true;
    return broken;
}

nlohmann::ordered_json setReport(const Tavri::SequenceRecords& records, const Tavri::SetVerdict& verdict) {
    nlohmann::ordered_json problems = nlohmann::ordered_json::array();
    for (const auto& p : verdict.problems)
        problems.push_back(
            {{"image", p.image}, {"trigger", p.trigger}, {"cause", Tavri::causeName(p.cause)}, {"detail", p.detail}});
    nlohmann::ordered_json images = nlohmann::ordered_json::array();
    for (std::size_t i = 0; i < records.images.size(); ++i) {
        const auto& r = records.images[i];
        const auto trigger = i < verdict.triggers.size() ? verdict.triggers[i] : -1;
        images.push_back({{"index", r.index},
                          {"trigger", trigger < 0 ? nlohmann::ordered_json() : nlohmann::ordered_json(trigger)},
                          {"frame", orNull(r.frameNumber)},
                          {"cameraTimeNs", orNull(r.cameraTimeNs)},
                          {"hostTimeNs", r.hostTimeNs},
                          {"status", r.status == 0 ? std::string("ok") : std::string(*r.statusText ? r.statusText : "failed")}});
    }
    return {{"requested", records.requested},
            {"verdict", verdict.whole() ? "whole" : "broken"},
            {"summary", verdict.describe()},
            {"periodNs", verdict.periodNs > 0 ? nlohmann::ordered_json(verdict.periodNs) : nlohmann::ordered_json()},
            {"problems", problems},
            {"images", images}};
}

nlohmann::ordered_json setsReport(const std::vector<std::pair<std::string, nlohmann::ordered_json>>& cameras,
                                  const Tavri::SetMatch& match) {
    static const char* const kCauses[] = {"count differs", "other trigger", "broken set"};
    nlohmann::ordered_json problems = nlohmann::ordered_json::array();
    for (const auto& p : match.problems)
        problems.push_back({{"camera", p.serial},
                            {"image", p.image},
                            {"cause", kCauses[static_cast<int>(p.cause)]},
                            {"detail", p.detail}});
    nlohmann::ordered_json sets = nlohmann::ordered_json::array();
    for (const auto& [serial, report] : cameras) {
        nlohmann::ordered_json entry{{"serial", serial}};
        entry.update(report);
        sets.push_back(entry);
    }
    return {{"match", match.matched() ? "matched" : "disagree"},
            {"judgedBy", match.judgedBy},
            {"medianSkewNs", match.medianSkewNs},
            {"largestSkewNs", match.largestSkewNs},
            {"problems", problems},
            {"cameras", sets}};
}

void writeSetReport(const std::string& directory, const nlohmann::ordered_json& report) {
    createOutputDirectory(directory);
    const std::string text = report.dump(2) + "\n";
    writeFile((std::filesystem::path(directory) / "sequence.json").lexically_normal().string(),
              std::vector<uchar>(text.begin(), text.end()));
}

std::uint64_t framesMissedBetween(const Tavri::ImageRecord& previous, const Tavri::ImageRecord& next) {
    const std::uint64_t counted = Tavri::framesBetween(previous, next);
    // A jump of a million frames is a camera that counts anew, not a loss.
    return counted > 1 && counted < 1000000 ? counted - 1 : 0;
}

}  // namespace TeliGrab
