import { words } from "../../app/language";

export const label = words({
  IDS_ALL: "All",
  IDS_CHANNELS: "Channels",
  IDS_CHANNEL_SEARCH: "Channel search",
  IDS_DELETE: "Delete",
  IDS_EDIT: "Edit",
  IDS_FAVOURITES: "Favourites",
  IDS_SAVE: "Save",
});
