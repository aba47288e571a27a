#pragma once

namespace tesk {

class TeskSpectrumEffectView;

/// Told when the user starts and ends an edit in an effect editor: the effects panel switches
/// the effect on before the first value changes. Every call is optional. Main thread.
class TeskEffectViewDelegate {
public:
    virtual ~TeskEffectViewDelegate() = default;
    virtual void effectViewDidBeginEditing(TeskSpectrumEffectView* /*view*/) {}
    virtual void effectViewDidEndEditing(TeskSpectrumEffectView* /*view*/) {}
};

} // namespace tesk
