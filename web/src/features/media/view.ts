import { lazy } from "../../app/lazy";
import type { View } from "../../app/view";
import { MediaIcon } from "../../ui/icons";
import { label } from "./words";

export const view: View = {
  id: "media",
  title: () => label("IDS_MEDIA"),
  order: 27,
  icon: MediaIcon,
  component: lazy(async () => (await import("./media-panel")).MediaPanel),
};
