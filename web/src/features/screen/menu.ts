import { label } from "./words";

/** The set's open menu, and its messages to the viewer. The set sends words; their texts are the page's. */

type LabelId = Parameters<typeof label>[0];

export interface MenuEvent {
  title: string;
  start: string;
  seconds: number;
  mark?: string;
}

export interface MenuRow {
  name: string;
  number?: number;
  note?: string;
  /** The menu that the row opens. */
  menu?: string;
  start?: string;
  seconds?: number;
  marks?: string[];
  /** Of a channel in the guide. */
  events?: MenuEvent[];
}

export interface Menu {
  menu: string;
  title: string;
  /** The part of the list around the chosen row; a text has none. */
  rows?: MenuRow[];
  total?: number;
  first?: number;
  /** Column: of the chosen row's events. */
  selected?: { row: number; column?: number };
  /** What keys do here: a word for each. */
  actions: Record<string, string>;
  /** Of media and the home network: the folder whose entries are listed; without it, the sticks or the servers are. */
  folder?: string;
  /** Of the home network: the server has not answered yet, or why it cannot be listed. */
  loading?: boolean;
  problem?: string;
  /** When the guide's columns begin, and the chosen time. */
  columns?: string[];
  time?: string;
  event?: MenuEvent & { number?: number; channel?: string; summary?: string };
  text?: string;
}

export interface Message {
  word: string;
  about: string;
  text: string;
}

const titles: Readonly<Record<string, LabelId>> = {
  main: "IDS_MENU",
  guide: "IDS_GUIDE",
  details: "IDS_DETAILS",
  channels: "IDS_CHANNEL_LIST",
  favourites: "IDS_FAVOURITES",
  sources: "IDS_SOURCES",
  recordings: "IDS_RECORDINGS",
  timers: "IDS_TIMERS",
  media: "IDS_MEDIA",
  home_network: "IDS_HOME_NETWORK",
};

/** The title of a menu; the set's own if the page does not know it. */
export const titleOf = (menu: string, title: string): string => (titles[menu] ? label(titles[menu]) : title);

const actions: Readonly<Record<string, LabelId>> = {
  back: "IDS_BACK",
  choose: "IDS_SELECT",
  close: "IDS_CLOSE",
  day: "IDS_NEXT_DAY",
  delete: "IDS_DELETE",
  details: "IDS_DETAILS",
  favourite: "IDS_FAVOURITE",
  guide: "IDS_GUIDE",
  open: "IDS_OPEN",
  play: "IDS_PLAY",
  record: "IDS_RECORD",
  remind: "IDS_REMINDER",
  stop: "IDS_STOP",
  watch: "IDS_WATCH",
};

export const actionOf = (word: string): string => (actions[word] ? label(actions[word]) : word);

const marks: Readonly<Record<string, { sign: string; text: LabelId }>> = {
  blocked: { sign: "⊘", text: "IDS_BLOCKED" },
  current: { sign: "▶", text: "IDS_CURRENT" },
  empty: { sign: "–", text: "IDS_NOT_CONNECTED" },
  failed: { sign: "!", text: "IDS_FAILED" },
  favourite: { sign: "★", text: "IDS_FAVOURITE" },
  folder: { sign: "▸", text: "IDS_FOLDER" },
  kept: { sign: "✓", text: "IDS_KEPT" },
  music: { sign: "♪", text: "IDS_MUSIC" },
  photo: { sign: "▣", text: "IDS_PHOTO" },
  playlist: { sign: "☰", text: "IDS_PLAYLIST" },
  record: { sign: "○", text: "IDS_WILL_RECORD" },
  recording: { sign: "●", text: "IDS_RECORDS" },
  remind: { sign: "◷", text: "IDS_REMINDER" },
  series: { sign: "≡", text: "IDS_SERIES" },
  video: { sign: "▷", text: "IDS_VIDEO" },
};

/** The sign of a mark, and its text for a screen reader. */
export const markOf = (mark: string): { sign: string; text: string } => {
  const known = marks[mark];
  return known ? { sign: known.sign, text: label(known.text) } : { sign: mark, text: mark };
};

/** Parts of a message's text. What it is about follows them. */
const messages: Readonly<Record<string, LabelId[]>> = {
  aspect_ratio: ["IDS_ASPECT_RATIO"],
  deleted: ["IDS_DELETED"],
  favourite: ["IDS_FAVOURITE_ADDED"],
  no_channel: ["IDS_NO_CHANNEL_NUMBER"],
  no_channels: ["IDS_NO_CHANNELS"],
  no_favourite: ["IDS_FAVOURITE_REMOVED"],
  no_reminder: ["IDS_REMINDER_DELETED"],
  not_available: ["IDS_NOT_AVAILABLE"],
  not_recorded: ["IDS_NOT_RECORDED"],
  picture_mode: ["IDS_PICTURE_MODE"],
  playing: ["IDS_PLAYING"],
  press_red: ["IDS_PRESS_RED"],
  records: ["IDS_RECORDS"],
  refused: ["IDS_NOT_POSSIBLE"],
  reminder: ["IDS_REMINDER_SET"],
  repeat: ["IDS_REPEAT"],
  sleep: ["IDS_SLEEP_TIMER"],
  sleep_off: ["IDS_SLEEP_TIMER", "IDS_OFF"],
  sound: ["IDS_SOUND"],
  sound_mode: ["IDS_SOUND_MODE"],
  subtitles: ["IDS_SUBTITLES"],
  subtitles_off: ["IDS_SUBTITLES", "IDS_OFF"],
  subtitles_on: ["IDS_SUBTITLES", "IDS_ON"],
  standby: ["IDS_STANDBY", "IDS_NO_EFFECT_NOW"],
  wrong_pin: ["IDS_WRONG_PIN"],
  will_record: ["IDS_WILL_RECORD"],
};

/** Names of a setting's values. */
const values: Readonly<Record<string, LabelId>> = {
  automatic: "IDS_AUTOMATIC",
  custom: "IDS_CUSTOM",
  film: "IDS_FILM",
  game: "IDS_GAME",
  music: "IDS_MUSIC",
  news: "IDS_NEWS",
  sport: "IDS_SPORT",
  standard: "IDS_STANDARD",
  unscaled: "IDS_UNSCALED",
  vivid: "IDS_VIVID",
  zoom: "IDS_ZOOM",
};

const settings = ["aspect_ratio", "picture_mode", "sound_mode"];

export function textOfMessage({ word, about, text }: Message): string {
  const parts = messages[word];
  if (!parts) return text;
  const value = settings.includes(word) ? values[about] : undefined;
  return [...parts.map((id) => label(id)), value ? label(value) : about].filter(Boolean).join(": ");
}
