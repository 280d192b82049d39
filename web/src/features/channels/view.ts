import { lazy } from "../../app/lazy";
import type { View } from "../../app/view";
import { ChannelsIcon } from "../../ui/icons";
import { label } from "./words";

export const view: View = {
  id: "channels",
  title: () => label("IDS_CHANNELS"),
  order: 22,
  icon: ChannelsIcon,
  component: lazy(async () => (await import("./channels-panel")).ChannelsPanel),
};
