#pragma once

#include "Desktop.h"

#include <string>

namespace Report
{

/// What stands beside the text of a message, and its buttons.
enum class MessageKind
{
    Error,
    Plain,
    Confirm,
};

/// A message box: as large as its text, with "OK", or with "Yes" and "No". Its result is 0 for "OK" and "Yes".
class MessageWindow : public Dialog
{
public:
    MessageWindow(const Zem::ReportLayout::DialogUnits& units, MessageKind kind, const std::string& title,
                  const std::string& text);

    void draw() override;

private:
    MessageKind kind;
    std::string titleText;
    std::string text;
    Zem::Rect textPlace;
    Zem::Rect iconPlace;
};

} // namespace Report
