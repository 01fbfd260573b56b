#pragma once

#include "Desktop.h"
#include "ReportList.h"

#include <Bedrock/host/ReportLayout.h>

#include <string_view>

namespace Report
{

/// The fatal error dialog.
class ReportWindow : public Dialog
{
public:
    ReportWindow(const Zem::ReportLayout::DialogUnits& units, std::string_view report);

    int handle(int event) override;
    void resize(int x, int y, int width, int height) override;
    void draw() override;

private:
    Fl_Widget* Make(const Zem::ReportLayout::Control& control, std::string_view report);
    Zem::ReportLayout::SizeKind State();

    Zem::ReportLayout layout;
    Fl_Widget* widgets[5]{}; // of the controls, in their order
    ReportList* list = nullptr;
};

} // namespace Report
