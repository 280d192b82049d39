import { words } from "../../app/language";

export const label = words({
  IDS_CANCEL: "Cancel",
  IDS_DELETE: "Delete",
  IDS_EDIT: "Edit",
  IDS_RECORD: "Record",
  IDS_RECORDINGS: "Recordings",
  IDS_SAVE: "Save",
  IDS_STOP: "Stop",
  IDS_TIMERS: "Timers",
});
