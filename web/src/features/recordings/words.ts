import { words } from "../../app/language";

export const label = words({
  IDS_CANCEL: "Cancel",
  IDS_DELETE: "Delete",
  IDS_EDIT: "Edit",
  IDS_PAUSE: "Pause",
  IDS_PLAY: "Play",
  IDS_PLAYBACK: "Playback",
  IDS_POSITION: "Position",
  IDS_RECORD: "Record",
  IDS_RECORDINGS: "Recordings",
  IDS_RESUME: "Resume",
  IDS_SAVE: "Save",
  IDS_SECONDS_BACK: "10 seconds back",
  IDS_SECONDS_FORWARD: "30 seconds forward",
  IDS_STOP: "Stop",
  IDS_TIMERS: "Timers",
});
