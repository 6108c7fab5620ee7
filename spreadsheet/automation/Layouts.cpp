// The three risk-limit table layouts: heading lists and last column letters.
#include "spreadsheet/SpreadSheet.h"

namespace {

const char* const kRmsHeadings[] = {
    "User ID", "Exchange", "Segment", "Single Order Qty", "Single Order Value",
    "Price % Change(0.01-1)", "Price % Change(1-5)", "Price % Change(5-10)",
    "Price % Change(10-50)", "Price % Change(>50)",
    // The misspelling is part of the layout users know; keep it.
    "Pending Total Qauntity", "Pending Buy Qauntity", "Pending Sell Qauntity",
    "Pending Total Value", "Pending Buy Value", "Pending Sell Value", "Buy Quantity",
    "Sell Quantity", "Net Quantity", "Buy Limit", "Sell Limit", "Net Limit", "Turnover Limit",
    "MTM Limit", "Deposit Amount", "Span Margin", "Exposure Margin", "Margin Benefit",
    "Square Off On MtoM Exceed", "Force Square Off Mode", "Include Open Position"};

const char* const kPriceProtectionHeadings[] = {"User ID",
                                                "Exchange",
                                                "Segment",
                                                "Stock",
                                                "Index",
                                                "Option",
                                                "Interval",
                                                "Market Price [0 to 5]",
                                                "Market Price [Above 5 to 50]",
                                                "Market Price [Above 50 to 100]",
                                                "Market Price [Above 100]"};

const char* const kScriptValidationHeadings[] = {"User ID",
                                                 "Exchange",
                                                 "Script",
                                                 "Buy Value (Lack)",
                                                 "Sell Value (Lack)",
                                                 "Net Value (Lack)",
                                                 "TurnOver (Lack)",
                                                 "Buy Qty",
                                                 "Sell Qty",
                                                 "Net Qty",
                                                 "Force Square Off Mode",
                                                 "Include Open Position"};

template <std::size_t N>
void Load(CStringArray& names, const char* const (&headings)[N]) {
  names.RemoveAll();
  names.FreeExtra();
  for (const char* h : headings) names.Add(h);
}

}  // namespace

void CSpreadSheet::fillRMSTableColumn() { Load(fieldNames, kRmsHeadings); }
void CSpreadSheet::fillPriceProtectionColumn() { Load(fieldNames, kPriceProtectionHeadings); }
void CSpreadSheet::fillScriptValidationColumn() { Load(fieldNames, kScriptValidationHeadings); }

CString CSpreadSheet::getRMSlastCol() { return "AE"; }
CString CSpreadSheet::getPriceProtectionlastCol() { return "K"; }
CString CSpreadSheet::getScriptValidationlastCol() { return "L"; }
