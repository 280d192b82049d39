import { words } from "../../app/language";

export const label = words({
  IDS_AIR: "Air",
  IDS_BLOCKED: "Blocked",
  IDS_BLOCKED_SWITCH: "Blocked: the set asks for the PIN",
  IDS_CABLE: "Cable",
  IDS_CHANNELS: "Channels",
  IDS_DATA: "Data",
  IDS_EDIT: "Edit",
  IDS_FAVOURITES: "Favourites",
  IDS_HIDDEN: "Hidden",
  IDS_NAME: "Name",
  IDS_NUMBER: "Number",
  IDS_RADIO: "Radio",
  IDS_SATELLITE: "Satellite",
  IDS_SAVE: "Save",
  IDS_SCAN_FINDS: "The next scan may find it again.",
  IDS_SCRAMBLED: "Scrambled",
  IDS_SKIPPED: "Skipped",
  IDS_SKIPPED_SWITCH: "Skipped by channel up and down",
});
