import { label } from "./words";

/** The headings of the groups, which are the first parts of the keys. */
const names: Readonly<Record<string, Parameters<typeof label>[0]>> = {
  action: "IDS_ACTIONS",
  aud_lang: "IDS_AUDIO_LANGUAGE",
  audio: "IDS_SOUND",
  bs: "IDS_BROADCAST_SOURCE",
  ci: "IDS_COMMON_INTERFACE",
  country: "IDS_COUNTRY",
  eco: "IDS_ENERGY",
  gui: "IDS_MENU",
  gui_lang: "IDS_MENU_LANGUAGE",
  hbbtv: "IDS_INTERACTIVE",
  misc: "IDS_OTHERS",
  nw: "IDS_NETWORK",
  password: "IDS_PIN",
  rating: "IDS_PARENTAL",
  rec: "IDS_RECORDINGS",
  subtitle: "IDS_SUBTITLES",
  time: "IDS_TIME",
  ttx: "IDS_TELETEXT",
  video: "IDS_PICTURE",
};

/** A group that the page does not know has its own name. */
export function groupName(group: string): string {
  const name = names[group];
  return name ? label(name) : group || label("IDS_OTHERS");
}
