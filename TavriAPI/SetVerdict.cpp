// The verdict on a set: which trigger each image answers, and every missing, extra,
// stale or failed frame, from the records alone.
//
// Each image gets a trigger slot. Times place it: a running phase (capture time less
// slot times period, averaged over the last images) predicts where each slot lies, so
// jitter up to nearly half a period never moves an image to another slot, and a period
// that is a little off does not add up over a long set. Frame numbers add the frames
// that the camera took and the host never saw.

#include <algorithm>
#include <boost/format.hpp>
#include <cmath>
#include <vector>

#include "TavriAPI/ImageRecords.h"
#include "TavriAPI/RecordMath.h"

namespace Tavri {

namespace {

constexpr std::size_t kPhaseWindow = 8;
// Below these periods times say nothing of triggers: images taken from a full queue,
// or a host clock read after scheduling delays.
constexpr double kMinCameraPeriodNs = 20e3;
constexpr double kMinHostPeriodNs = 1e6;
// Beyond this share of a period from its slot an image is off the beat; jitter of a
// quarter period stays well within it.
constexpr double kOffBeat = 0.35;
constexpr double kTwoPi = 6.283185307179586;
// How far from a rough period the best-aligned one is looked for: a stated rate is off
// by a clock's error at most, a median of 11 or more intervals by a few percent.
constexpr double kStatedSearch = 0.02;
constexpr double kMedianSearch = 0.15;
constexpr std::size_t kSharpenFrom = 12;

enum class Base { Camera, Capture, Host };

double timeOf(const ImageRecord& r, Base base) {
    switch (base) {
    case Base::Camera: return static_cast<double>(r.cameraTimeNs);
    case Base::Capture: return static_cast<double>(r.captureSteadyNs);
    case Base::Host: break;
    }
    return static_cast<double>(r.hostTimeNs);
}

bool isStale(const ImageRecord& r, std::uint64_t start) {
    return start != 0 && known(r.captureSteadyNs) && r.captureSteadyNs < start;
}

// framesBetween, or 0 for a jump no set of this length can make.
std::uint64_t frameGap(const ImageRecord& a, const ImageRecord& b, std::int32_t requested) {
    const std::uint64_t gap = framesBetween(a, b);
    const auto plausible = static_cast<std::uint64_t>(std::max(requested, 0)) + 16;
    return gap <= plausible ? gap : 0;
}

Base baseOf(const std::vector<const ImageRecord*>& good) {
    const auto all = [&](auto field) {
        return std::all_of(good.begin(), good.end(), [&](const ImageRecord* r) { return known(r->*field); });
    };
    if (all(&ImageRecord::cameraTimeNs)) return Base::Camera;
    if (all(&ImageRecord::captureSteadyNs)) return Base::Capture;
    return Base::Host;
}

double medianInterval(const std::vector<const ImageRecord*>& good, Base base) {
    std::vector<double> intervals;
    intervals.reserve(good.size());
    for (std::size_t i = 1; i < good.size(); ++i) intervals.push_back(timeOf(*good[i], base) - timeOf(*good[i - 1], base));
    return intervals.size() < 2 ? 0.0 : median(std::move(intervals));
}

// The period at which the images' times line up best, near `rough`. The median
// interval is only within a few percent of the trigger period, and over a long set a
// period that far off moves images to the next slot. The best-aligned period (the
// largest sum of unit vectors at each time's phase) is found on a grid of half its
// peak's width, then fitted by least squares through the slots it gives.
double sharpenedPeriod(const std::vector<const ImageRecord*>& good, Base base, double rough, double search) {
    const std::size_t n = good.size();
    if (n < 3 || rough <= 0) return rough;
    const double t0 = timeOf(*good.front(), base);
    const auto alignment = [&](double period, double* phase) {
        double c = 0, s = 0;
        for (const auto* r : good) {
            const double angle = kTwoPi * (timeOf(*r, base) - t0) / period;
            c += std::cos(angle);
            s += std::sin(angle);
        }
        if (phase) *phase = std::atan2(s, c) / (kTwoPi);
        return c * c + s * s;
    };
    const double step = rough / (2.0 * static_cast<double>(n));
    double best = rough, bestAlignment = -1;
    for (double period = rough * (1 - search); period <= rough * (1 + search); period += step) {
        const double a = alignment(period, nullptr);
        if (a > bestAlignment) bestAlignment = a, best = period;
    }
    double phase = 0;
    alignment(best, &phase);
    double sumK = 0, sumT = 0, sumKK = 0, sumKT = 0;
    for (const auto* r : good) {
        const double t = timeOf(*r, base) - t0;
        const double k = std::round(t / best - phase);
        sumK += k, sumT += t, sumKK += k * k, sumKT += k * t;
    }
    const double count = static_cast<double>(n);
    const double spread = sumKK - sumK * sumK / count;
    if (spread <= 0) return best;
    const double fitted = (sumKT - sumK * sumT / count) / spread;
    return std::abs(fitted - best) < step ? fitted : best;
}

class Judge {
public:
    Judge(const SequenceRecords& records, const VerdictOptions& options) : records_(records), options_(options) {}

    SetVerdict run() {
        const auto& images = records_.images;
        std::vector<const ImageRecord*> good;
        good.reserve(images.size());
        for (const auto& r : images)
            if (r.status == 0 && !isStale(r, records_.startSteadyNs)) good.push_back(&r);
        base_ = baseOf(good);
        // A caller's rate is the projector's nominal one. A median of few intervals can
        // be far off, and so can the best alignment of few images: short sets keep it.
        if (!options_.byTime)
            period_ = 0.0;
        else if (options_.periodNs > 0)
            period_ = sharpenedPeriod(good, base_, options_.periodNs, kStatedSearch);
        else if (good.size() >= kSharpenFrom)
            period_ = sharpenedPeriod(good, base_, medianInterval(good, base_), kMedianSearch);
        else
            period_ = medianInterval(good, base_), roughPeriod_ = true;
        if (period_ < (base_ == Base::Host ? kMinHostPeriodNs : kMinCameraPeriodNs)) period_ = 0.0;
        pass();
        // Triggers that came at no steady pace (an emulated line, a host that pulses by
        // hand) say nothing through their times: judge by frame numbers alone then.
        if (period_ > 0 && offBeat_ > std::max<std::size_t>(2, good.size() / 4)) {
            period_ = 0.0;
            pass();
        }
        verdict_.periodNs = period_;
        if (!records_.endedBecause.empty() && (images.empty() || images.back().status == 0))
            add(static_cast<std::int32_t>(images.size()), SetProblemCause::EndedEarly,
                (boost::format("ended early after %d of %d images: %s") % images.size() % records_.requested %
                 records_.endedBecause)
                    .str());
        return std::move(verdict_);
    }

private:
    void pass() {
        verdict_.problems.clear();
        verdict_.triggers.assign(records_.images.size(), -1);
        next_ = 0;
        previous_ = nullptr;
        previousSlot_ = -1;
        count_ = offBeat_ = 0;
        for (std::size_t i = 0; i < records_.images.size(); ++i)
            place(static_cast<std::int32_t>(i), records_.images[i]);
    }

    void add(std::int32_t image, SetProblemCause cause, std::string detail, std::int32_t trigger = -1) {
        verdict_.problems.push_back({image, trigger < 0 ? next_ : trigger, cause, std::move(detail)});
    }

    void place(std::int32_t i, const ImageRecord& r) {
        if (r.status != 0) {
            add(i, SetProblemCause::FailedFrame,
                (boost::format("failed frame: %s") %
                 (*r.statusText ? std::string(r.statusText) : "status " + std::to_string(r.status)))
                    .str());
            // It answered a trigger all the same: the next image answers the one after.
            ++next_;
            return;
        }
        if (isStale(r, records_.startSteadyNs)) {
            add(i, SetProblemCause::StaleFrame,
                (boost::format("stale frame: captured %.1f ms before acquisition started") %
                 ((records_.startSteadyNs - r.captureSteadyNs) / 1e6))
                    .str());
            return;
        }
        const double t = timeOf(r, base_);
        std::int64_t slot = next_;
        std::uint64_t gap = 0;
        if (!previous_) {
            // Only a time on the host's clock compares with the start.
            const double onHost = known(r.captureSteadyNs) ? static_cast<double>(r.captureSteadyNs)
                                  : base_ == Base::Host    ? t
                                                           : -1.0;
            if (period_ > 0 && onHost >= 0 && options_.firstTriggerNs >= 0 && records_.startSteadyNs)
                slot = std::max<std::int64_t>(
                    next_, std::llround((onHost - static_cast<double>(records_.startSteadyNs) -
                                         options_.firstTriggerNs) /
                                        period_));
        } else {
            gap = frameGap(*previous_, r, records_.requested);
            std::int64_t advance = gap > 0 ? static_cast<std::int64_t>(gap) : 1;
            if (period_ > 0) {
                const double beat = (t - phase()) / period_;
                const bool offBeat = std::abs(beat - std::round(beat)) > kOffBeat;
                offBeat_ += offBeat;
                // With a period from few intervals, an image halfway between two slots
                // tells nothing: the frame numbers, or else the next slot, decide.
                const auto byTime = offBeat && roughPeriod_ ? advance
                                                            : std::max<std::int64_t>(0, std::llround(beat) - previousSlot_);
                advance = byTime == 0 ? 0 : std::max<std::int64_t>(byTime, static_cast<std::int64_t>(gap));
            }
            slot = previousSlot_ + advance;
        }
        if (previous_ && slot == previousSlot_) {
            add(i, SetProblemCause::ExtraFrame,
                (boost::format("extra frame: answers trigger %d again") % slot).str());
        } else {
            for (std::int64_t missing = next_; missing < slot; ++missing)
                add(i, SetProblemCause::MissingTrigger, missingText(missing, r, gap),
                    static_cast<std::int32_t>(missing));
            next_ = static_cast<std::int32_t>(slot + 1);
            if (period_ > 0) remember(t - static_cast<double>(slot) * period_);
        }
        verdict_.triggers[static_cast<std::size_t>(i)] = static_cast<std::int32_t>(slot);
        previous_ = &r;
        previousSlot_ = slot;
    }

    std::string missingText(std::int64_t missing, const ImageRecord& r, std::uint64_t gap) const {
        auto text = (boost::format("pattern %d missing") % missing).str();
        if (previous_ && gap > 1)
            return text + ": camera frame " + std::to_string(previous_->frameNumber) + " then " + std::to_string(r.frameNumber);
        if (previous_ && period_ > 0)
            return text + (boost::format(": %.2f periods since the image before") %
                           ((timeOf(r, base_) - timeOf(*previous_, base_)) / period_))
                              .str();
        return text + (previous_ ? "" : " before the first image");
    }

    void remember(double phase) {
        phases_[count_ % kPhaseWindow] = phase;
        ++count_;
    }
    double phase() const {
        const std::size_t n = std::min(count_, kPhaseWindow);
        double sum = 0;
        for (std::size_t k = 0; k < n; ++k) sum += phases_[k];
        return sum / static_cast<double>(n);
    }

    const SequenceRecords& records_;
    const VerdictOptions& options_;
    SetVerdict verdict_;
    Base base_ = Base::Host;
    double period_ = 0.0;
    std::int32_t next_ = 0;  // the next trigger in line
    const ImageRecord* previous_ = nullptr;
    std::int64_t previousSlot_ = -1;
    double phases_[kPhaseWindow] = {};
    std::size_t count_ = 0;
    std::size_t offBeat_ = 0;  // images far from any slot of the running phase
    bool roughPeriod_ = false;  // a median of few intervals
};

// "images 5-11 answer triggers 6-12": the runs of images whose trigger is not their
// index, each run with one offset.
std::string shiftText(const std::vector<std::int32_t>& triggers) {
    std::string text;
    std::size_t i = 0;
    while (i < triggers.size()) {
        const auto offset = triggers[i] - static_cast<std::int32_t>(i);
        if (triggers[i] < 0 || offset == 0) {
            ++i;
            continue;
        }
        std::size_t end = i;
        while (end + 1 < triggers.size() && triggers[end + 1] >= 0 &&
               triggers[end + 1] - static_cast<std::int32_t>(end + 1) == offset)
            ++end;
        text += (text.empty() ? "" : ", ") +
                (end == i ? (boost::format("image %d answers trigger %d") % i % triggers[i]).str()
                          : (boost::format("images %d-%d answer triggers %d-%d") % i % end % triggers[i] %
                             triggers[end])
                                .str());
        i = end + 1;
    }
    return text;
}

}  // namespace

const char* causeName(SetProblemCause cause) {
    switch (cause) {
    case SetProblemCause::MissingTrigger: return "missing trigger";
    case SetProblemCause::ExtraFrame: return "extra frame";
    case SetProblemCause::StaleFrame: return "stale frame";
    case SetProblemCause::FailedFrame: return "failed frame";
    case SetProblemCause::EndedEarly: return "ended early";
    }
    return "unknown";
}

std::string SetVerdict::describe() const {
    if (whole()) return "whole";
    std::string text;
    for (const auto& problem : problems)
        text += (text.empty() ? "" : "; ") + (boost::format("image %d: %s") % problem.image % problem.detail).str();
    const auto shifts = shiftText(triggers);
    return shifts.empty() ? text : text + "; " + shifts;
}

std::uint64_t framesBetween(const ImageRecord& a, const ImageRecord& b) {
    if (!known(a.frameNumber) || !known(b.frameNumber)) return 0;
    if (b.frameNumber > a.frameNumber) return b.frameNumber - a.frameNumber;
    if (a.frameIdWrap != 0 && a.frameNumber <= a.frameIdWrap && b.frameNumber >= a.frameIdFirst)
        return (a.frameIdWrap - a.frameNumber) + (b.frameNumber - a.frameIdFirst) + 1;
    return 0;
}

SetVerdict judgeSet(const SequenceRecords& records, const VerdictOptions& options) {
    return Judge(records, options).run();
}

ImageRecordSource::~ImageRecordSource() = default;

}  // namespace Tavri
