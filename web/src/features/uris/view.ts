import type { View } from "../../app/view";
import { ListIcon } from "../../ui/icons";
import { UriList } from "./uri-list";
import { label } from "./words";

export const view: View = {
  id: "uris",
  title: () => label("IDS_URIS"),
  order: 10,
  icon: ListIcon,
  component: UriList,
  column: true,
};
