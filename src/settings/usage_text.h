// The version line (no line end) and the two usage texts (every line ends in "\n").
#ifndef VESK_SETTINGS_USAGE_TEXT_H
#define VESK_SETTINGS_USAGE_TEXT_H

extern const char *const version_text;
extern const char *const usage_text;
extern const char *const usage_text_full;

#endif
