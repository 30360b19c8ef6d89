#pragma once

#include "keys.h"
#include "livedata.h"
#include "uistate.h"

#include <string>

namespace plcctl::live {

// "connect broker 1 'plant'"
std::string describe(const WantedRequest& request);

// Asks the user for a yes or no; answerQuestion takes the key that comes then.
void ask(UiState& state, WantedRequest request);
void answerQuestion(UiState& state, KeyEffect& effect, char32_t key);

// Sends or asks for what the key stands for in the current view, or tells where it stands for something.
void pressRequestKey(UiState& state, KeyEffect& effect, char32_t key, const LiveData& data);

} // namespace plcctl::live
