#include "api/status_table.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "api/media_adapter.h"

namespace media_adapter {
namespace {

struct StatusRow {
  uint32_t code;
  std::string_view text;
};

constexpr StatusRow kStatusTable[] = {
    {0, "Operation successful"},
    {1, "Invalid element size"},
    {2, "Invalid element ID"},
    {3, "Invalid password"},
    {4, "Packet length is too large"},
    {5, "Media Adapter is busy"},
    {6, "Media Adapter is not ready"},
    {7, "Not connected to Media Adapter"},
    {8, "Protocol error"},
    {9, "One or more packets were not received"},
    {49, "Mass Storage Device cannot be accessed"},
    {236, "Specified name is already in use"},
    {237, "Please wait operation in process to terminate"},
    {238, "A unique associated short name cannot be found"},
    {239, "Not enough free directory entries found"},
    {240, "A directory cannot be overwritten by a file"},
    {241, "A directory cannot be deleted"},
    {242, "Number of directory entries is too large"},
    {243, "Invalid path length"},
    {244, "Invalid path"},
    {245, "First cluster of root directory is not cluster 2"},
    {246, "Invalid number of sectors per cluster"},
    {247, "Not supported FAT type"},
    {248, "Invalid sector signature"},
    {249, "Not enough free memory to allocate"},
    {250, "Sector size is not equal to 512"},
    {251, "Invalid address of sector to read or write"},
    {252, "Invalid number of sectors to read or write"},
    {253, "No response from device"},
    {254, "Invalid password length"},
    {255, "Device selected has not been found"},
};

static_assert(std::size(kStatusTable) == 31);
static_assert(std::ranges::all_of(kStatusTable,
                                  [](const StatusRow& row) { return row.text.size() < MEDIA_ADAPTER_MESSAGE_SIZE; }));

}  // namespace

bool LookupStatusText(uint32_t code, std::span<char> messageField) {
  const auto row = std::ranges::find(kStatusTable, code, &StatusRow::code);
  if (row == std::end(kStatusTable)) return false;
  const auto end = std::ranges::copy(row->text, messageField.begin()).out;
  *end = '\0';
  return true;
}

}  // namespace media_adapter
